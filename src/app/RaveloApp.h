#pragma once

#include "platform/TrayWatcher.h"

#include <QMenu>
#include <QObject>

#include <memory>

class AppDelegate;
class AppState;
class QSystemTrayIcon;

/// Ravelo's presence on the desktop: the bolt in the tray with its menu. Creating it
/// creates the controller.
class RaveloApp : public QObject {
    Q_OBJECT

public:
    explicit RaveloApp(AppState* appState, QObject* parent = nullptr);
    ~RaveloApp() override;

    AppDelegate* appDelegate() const { return m_appDelegate.get(); }
    QMenu* menu() { return &m_menu; }
    /// The tray icon; null until the desktop has a tray (a panel may still be starting at
    /// login).
    QSystemTrayIcon* trayIcon() const { return m_trayIcon; }

    /// The bolt of the tray and of every window: the icon theme's "ravelo", else the
    /// bundled SVG drawn at every size asked for.
    static QIcon icon();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showTrayIcon();

    std::unique_ptr<AppDelegate> m_appDelegate;
    QMenu m_menu;
    TrayWatcher m_trayWatcher;
    QSystemTrayIcon* m_trayIcon = nullptr;
};
