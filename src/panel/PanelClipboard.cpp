#include "panel/PanelClipboard.h"

#include <QClipboard>
#include <QGuiApplication>

void PanelClipboard::setText(const QString& text)
{
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(text);
}
