#include "app/RaveloApp.h"

#include "app/AppDelegate.h"
#include "app/AppLogging.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QSystemTrayIcon>

#include <cstdio>

RaveloApp::RaveloApp(AppState* appState, QObject* parent)
    : QObject(parent)
    , m_appDelegate(std::make_unique<AppDelegate>(appState))
{
    AppDelegate* delegate = m_appDelegate.get();
    m_menu.addAction(QStringLiteral("About Ravelo"), delegate, &AppDelegate::showAbout);
    m_menu.addSeparator();
    QAction* preferences =
        m_menu.addAction(QStringLiteral("Preferences…"), delegate, &AppDelegate::openSettings);
    preferences->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_menu.addSeparator();
    m_menu.addAction(QStringLiteral("Show Onboarding…"), delegate, &AppDelegate::showOnboarding);
    m_menu.addSeparator();
    QAction* quit = m_menu.addAction(QStringLiteral("Quit Ravelo"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        std::fputs("Ravelo: this desktop shows no tray icons, so Ravelo runs without one. Start "
                   "\"ravelo\" again to open its preferences; \"ravelo trigger\" opens the "
                   "panel.\n",
                   stderr);
        return;
    }
    m_trayIcon = new QSystemTrayIcon(icon(), this);
    m_trayIcon->setToolTip(QStringLiteral("Ravelo"));
    m_trayIcon->setContextMenu(&m_menu);
    // A left click opens the same menu, as a menu-bar item would.
    connect(m_trayIcon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    m_menu.popup(QCursor::pos());
                }
            });
    m_trayIcon->show();
}

RaveloApp::~RaveloApp()
{
    delete m_trayIcon;
}

QIcon RaveloApp::icon()
{
    return QIcon(QStringLiteral(":/Ravelo/app/icons/ravelo.svg"));
}
