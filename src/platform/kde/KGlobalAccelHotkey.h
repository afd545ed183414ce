#pragma once

#include "platform/GlobalHotkey.h"

#include <QStringList>

/// The hotkey through KDE's global shortcut service (org.kde.kglobalaccel on the session
/// bus), which KWin runs in Plasma's Wayland sessions: Ravelo's one action, "trigger", gets
/// the recorded combination and is reported on every press. It shows in System Settings →
/// Shortcuts under "Ravelo". Unregistering stops reporting at once and frees the keys once
/// the event loop is back, unless the same combination has been registered again by then.
class KGlobalAccelHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~KGlobalAccelHotkey() override;

    /// Whether the service answers on the session bus.
    static bool isAvailable();

    bool registerHotkey(quint32 keyCode, quint32 modifiers) override;
    void unregisterHotkey() override;
    bool isRegistered() const override { return m_registered && m_wanted; }

    static constexpr const char* componentName = "ravelo";
    static constexpr const char* actionName = "trigger";

private slots:
    void handlePressed(const QString& component, const QString& action, qlonglong timestamp);

private:
    QStringList actionId() const;
    void release();

    QString m_componentPath;
    int m_combination = 0;
    bool m_registered = false;
    bool m_wanted = false;
    bool m_releaseQueued = false;
};
