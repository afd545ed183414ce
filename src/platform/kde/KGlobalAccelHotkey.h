#pragma once

#include "platform/GlobalHotkey.h"

#include <QStringList>

/// The hotkey through KDE's global shortcut service (org.kde.kglobalaccel on the session
/// bus), which KWin runs in Plasma's Wayland sessions: Ravelo's action "trigger" gets the
/// recorded combination, each prompt's action ("prompt-<id>") its own, and every press is
/// reported. They show in System Settings → Shortcuts under "Ravelo".
class KGlobalAccelHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~KGlobalAccelHotkey() override;

    /// Whether the service answers on the session bus.
    static bool isAvailable();

    bool registerShortcuts(const QList<Shortcut>& shortcuts) override;
    void unregisterHotkey() override;
    bool isRegistered() const override { return !m_registered.isEmpty(); }
    bool isRegistered(const QString& id) const override;

    static constexpr const char* componentName = "ravelo";

private slots:
    void handlePressed(const QString& component, const QString& action, qlonglong timestamp);

private:
    QStringList actionId(const Shortcut& shortcut) const;
    bool take(const Shortcut& shortcut);

    QString m_componentPath;
    QList<Shortcut> m_registered;
};
