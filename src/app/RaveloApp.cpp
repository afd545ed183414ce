#include "app/RaveloApp.h"

#include "app/AppDelegate.h"
#include "app/AppLogging.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QSystemTrayIcon>

#include <cstdio>

RaveloApp::RaveloApp(AppState* appState, QObject* parent)
    : QObject(parent)
    , m_appDelegate(std::make_unique<AppDelegate>(appState))
{
    AppDelegate* delegate = m_appDelegate.get();
    m_menu.addAction(tr("About Ravelo"), delegate, &AppDelegate::showAbout);
    m_menu.addSeparator();
    QAction* preferences =
        m_menu.addAction(tr("Preferences…"), delegate, &AppDelegate::openSettings);
    preferences->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_menu.addSeparator();
    m_menu.addAction(tr("Show Onboarding…"), delegate, &AppDelegate::showOnboarding);
    m_menu.addSeparator();
    QAction* quit = m_menu.addAction(tr("Quit Ravelo"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    // The shortcuts of a menu's actions never reach them while the menu is open, and the
    // keys may even go to one of our windows that has the focus: the open menu takes them
    // wherever they arrive.
    qApp->installEventFilter(this);

    // Made only once a tray exists: Qt picks the kind of tray at the first icon and keeps it.
    if (m_trayWatcher.trayExists()) {
        showTrayIcon();
    } else {
        std::fputs(
            qPrintable(tr("Ravelo: this desktop shows no tray icons yet; the bolt appears as "
                          "soon as a tray starts. Meanwhile \"ravelo preferences\" (or "
                          "starting Ravelo again) opens its preferences, \"ravelo "
                          "trigger\" the panel, and \"ravelo quit\" quits it.\n")),
            stderr);
        connect(&m_trayWatcher, &TrayWatcher::trayAppeared, this, &RaveloApp::showTrayIcon);
    }
}

void RaveloApp::showTrayIcon()
{
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

bool RaveloApp::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress || QApplication::activePopupWidget() != &m_menu) {
        return QObject::eventFilter(watched, event);
    }
    const QKeySequence pressed(static_cast<const QKeyEvent*>(event)->keyCombination());
    for (QAction* action : m_menu.actions()) {
        if (!action->shortcut().isEmpty() && action->shortcut() == pressed && action->isEnabled()) {
            m_menu.close();
            action->trigger();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

QIcon RaveloApp::icon()
{
    // By name from the icon theme, so that the tray gets an icon name and themes can draw
    // their own bolt; the bundled one where the theme has none.
    return QIcon::fromTheme(QStringLiteral("ravelo"),
                            QIcon(QStringLiteral(":/Ravelo/app/icons/ravelo.svg")));
}
