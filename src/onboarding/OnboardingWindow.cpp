#include "onboarding/OnboardingWindow.h"

#include "platform/AccessibilityTrust.h"
#include "platform/ModuleWindow.h"
#include "platform/TrayWatcher.h"

#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>

Q_LOGGING_CATEGORY(lcOnboarding, "ravelo.onboarding", QtInfoMsg)

using namespace Qt::StringLiterals;

namespace {

constexpr QSize contentSize(560, 460);

} // namespace

OnboardingWindow::OnboardingWindow(QQmlEngine* engine, QObject* parent)
    : QObject(parent)
    , m_engine(engine)
{}

OnboardingWindow::~OnboardingWindow()
{
    delete m_view;
}

void OnboardingWindow::setAccessibilityTrust(AccessibilityTrust* trust)
{
    m_trust = trust;
}

void OnboardingWindow::setCheckInterval(int milliseconds)
{
    m_checkInterval = milliseconds;
}

void OnboardingWindow::show()
{
    if (m_view && m_view->isVisible()) {
        showInFront(m_view);
        return;
    }
    delete m_view;

    // X11 window managers always draw a title bar for decorated windows: an empty title
    // keeps the close button and the move by the title bar, with nothing written in it.
    m_view = createModuleWindow(
        m_engine,
        {QString(),
         Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint,
         contentSize,
         u"qrc:/Ravelo/onboarding/OnboardingView.qml"_s,
         {{u"trust"_s, QVariant::fromValue<QObject*>(m_trust.data())},
          {u"checkInterval"_s, m_checkInterval},
          // Not QSystemTrayIcon's answer: asking it fixes for the whole process which kind of
          // tray Qt talks to, and a tray starting later would never get the icon.
          {u"trayAvailable"_s, TrayWatcher().trayExists()}}},
        lcOnboarding());
    if (QQuickItem* root = m_view->rootObject()) {
        connect(root, SIGNAL(completed()), this, SIGNAL(completed()));
    }
    showInFront(m_view);
}

void OnboardingWindow::close()
{
    if (m_view) {
        m_view->close();
    }
}

bool OnboardingWindow::isVisible() const
{
    return m_view && m_view->isVisible();
}

QQuickWindow* OnboardingWindow::window() const
{
    return m_view;
}
