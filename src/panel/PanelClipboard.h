#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

/// The system clipboard as the quick panel writes it: plain text only.
class PanelClipboard : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    /// Clears the clipboard, then puts the text on it.
    Q_INVOKABLE static void setText(const QString& text);
};
