#include "settings/SettingsWindow.h"

#include "platform/AccessibilityTrust.h"
#include "platform/ModuleWindow.h"
#include "settings/SettingsLogging.h"

#include <QQmlEngine>
#include <QQuickView>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize contentSize(520, 420);

} // namespace

SettingsWindow::SettingsWindow(QQmlEngine* engine, QObject* parent)
    : QObject(parent)
    , m_engine(engine)
{}

SettingsWindow::~SettingsWindow()
{
    delete m_view;
}

void SettingsWindow::setAccessibilityTrust(AccessibilityTrust* trust)
{
    m_trust = trust;
}

void SettingsWindow::open()
{
    if (m_view && m_view->isVisible()) {
        showInFront(m_view);
        return;
    }
    delete m_view;

    m_view = createModuleWindow(m_engine,
                                {tr("Ravelo Preferences"),
                                 Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                                     Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint,
                                 contentSize,
                                 u"qrc:/Ravelo/settings/SettingsView.qml"_s,
                                 {{u"trust"_s, QVariant::fromValue<QObject*>(m_trust.data())}}},
                                lcSettings());
    emit windowCreated(m_view);
    showInFront(m_view);
}

bool SettingsWindow::isVisible() const
{
    return m_view && m_view->isVisible();
}

QQuickWindow* SettingsWindow::window() const
{
    return m_view;
}
