#pragma once

#include <QObject>
#include <QString>

#include <functional>

/// Sees every change of the clipboard's owner, whichever application made it and whatever
/// keys or menu did it, without looking at any key: every copy takes the clipboard anew.
class ClipboardOwnerMonitor : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;
    using TextCallback = std::function<void(const QString& text)>;

    /// Starts reporting owner changes; false when this session offers no way to see them.
    /// Starting a running monitor changes nothing.
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

    /// Whether Qt's clipboard goes stale here while none of Ravelo's windows has the focus,
    /// so that the copied text must be read through this monitor (`readText`).
    virtual bool readsText() const { return false; }
    /// Reads the clipboard's plain text and hands it to `done` from the event loop: empty
    /// when the clipboard holds no text or its owner does not answer in time.
    virtual void readText(TextCallback done) { done(QString()); }

signals:
    /// The clipboard has a new owner. `owner` tells owners apart where the session says who
    /// owns it (the X11 window) and is 1 where it does not; 0 means the clipboard was cleared.
    void ownerChanged(quint64 owner);
};
