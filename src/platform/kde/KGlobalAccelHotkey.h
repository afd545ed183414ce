#pragma once

#include "platform/GlobalHotkey.h"

#include <QStringList>

/// The hotkey through KDE's global shortcut service (org.kde.kglobalaccel on the session
/// bus), which KWin runs in Plasma's Wayland sessions: Ravelo's action "trigger" gets the
/// recorded combination, each prompt's action ("prompt-<id>") its own, and every press is
/// reported. They show in System Settings → Shortcuts under "Ravelo". Unregistering stops
/// reporting at once and frees the keys once the event loop is back, unless the same
/// combinations have been registered again by then.
class KGlobalAccelHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~KGlobalAccelHotkey() override;

    /// Whether the service answers on the session bus.
    static bool isAvailable();

    bool registerShortcuts(const QList<Shortcut>& shortcuts) override;
    void unregisterHotkey() override;
    bool isRegistered() const override { return isActive() && !m_registered.isEmpty(); }
    bool isRegistered(const QString& id) const override;

    static constexpr const char* componentName = "ravelo";

private slots:
    void handlePressed(const QString& component, const QString& action, qlonglong timestamp);

private:
    QStringList actionId(const Shortcut& shortcut) const;
    bool take(const Shortcut& shortcut);
    void release() override;

    QString m_componentPath;
    /// What the last registration asked for, and what of it KDE gave.
    QList<Shortcut> m_requested;
    QList<Shortcut> m_registered;
};
