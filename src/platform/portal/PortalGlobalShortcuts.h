#pragma once

#include "platform/GlobalHotkey.h"

#include <QDBusObjectPath>
#include <QString>
#include <QVariantMap>

#include <functional>

/// The hotkey through the desktop portal's GlobalShortcuts interface (KDE Plasma 5.27 and
/// later, GNOME 48 and later, Hyprland): Ravelo's one shortcut, "trigger", is bound in a
/// session of the portal with the recorded combination as its preferred trigger, and each
/// prompt's shortcut ("prompt-<id>") beside it in the same session; the desktop may let the
/// user change them. Binding takes a round trip through the portal, so `registerShortcuts`
/// answers at once and `isRegistered` turns true once the portal has bound them.
/// Unregistering stops reporting at once but closes the session only once the event loop is
/// back: the same shortcuts registered again before then keep it, so re-arming the triggers
/// costs no new session.
class PortalGlobalShortcuts : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~PortalGlobalShortcuts() override;

    /// Whether the portal on the session bus offers global shortcuts.
    static bool isAvailable();

    bool registerShortcuts(const QList<Shortcut>& shortcuts) override;
    void unregisterHotkey() override;
    bool isRegistered() const override { return m_bound && isActive(); }
    bool isRegistered(const QString& id) const override;

    /// The trigger as the portal takes it: "CTRL+SHIFT+k"; empty for keys without a keysym.
    static QString preferredTrigger(quint32 keyCode, quint32 modifiers);

signals:
    /// The portal has answered the binding: whether the shortcut is bound.
    void bindingFinished(bool bound);

private slots:
    void handleResponse(uint response, const QVariantMap& results);
    void handleActivated(const QDBusObjectPath& session, const QString& shortcut,
                         qulonglong timestamp, const QVariantMap& options);

private:
    using ResponseHandler = std::function<void(uint, const QVariantMap&)>;
    bool request(const QString& method, QVariantList arguments, QVariantMap options,
                 ResponseHandler handler);
    /// The wanted shortcuts as the portal takes them, a(sa{sv}).
    QVariant portalShortcuts() const;
    void bind();
    void release() override;
    void closeSession();

    struct Wanted {
        QString id;
        QString trigger;
        QString description;
        bool operator==(const Wanted&) const = default;
    };
    QList<Wanted> m_wanted;
    QString m_session;
    QString m_requestPath;
    ResponseHandler m_pending;
    bool m_bound = false;
    int m_generation = 0;
};
