#include "platform/null/NullPanelWindowSupport.h"

#include <QWindow>

void NullPanelWindowSupport::activate(QWindow* window)
{
    window->requestActivate();
}

void NullPanelWindowSupport::setKeptAbove(QWindow* window, bool above)
{
    window->setFlag(Qt::WindowStaysOnTopHint, above);
}
