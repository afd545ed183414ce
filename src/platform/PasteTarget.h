#pragma once

#include <QObject>
#include <QString>

/// The window the user was typing in when the quick panel opened, and a way to paste into
/// it: its focus given back, then the paste shortcut typed as if by the user.
class PasteTarget : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;
    ~PasteTarget() override = default;

    /// Whether this session lets Ravelo type into other applications at all.
    virtual bool canPaste() const = 0;
    /// Notes the window that has the focus now; call before the panel takes it.
    virtual void rememberActiveWindow() = 0;
    /// Whether the remembered window still exists and is another application's.
    virtual bool hasTarget() = 0;
    /// Gives the remembered window the focus and, once it has it, pastes there. Ends with
    /// `pasted` or `failed`, never before returning.
    virtual void paste() = 0;

signals:
    void pasted();
    /// The paste did not happen; `reason` is for the log.
    void failed(const QString& reason);
};
