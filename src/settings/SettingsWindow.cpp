#include "settings/SettingsWindow.h"

#include "platform/AccessibilityTrust.h"
#include "settings/SettingsLogging.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickView>
#include <QScreen>

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
        m_view->raise();
        m_view->requestActivate();
        return;
    }
    delete m_view;

    // The module's QML files find each other through the module, which lives under qrc:/.
    if (!m_engine->importPathList().contains(u"qrc:/"_s)) {
        m_engine->addImportPath(u"qrc:/"_s);
    }
    auto* view = new QQuickView(m_engine, nullptr);
    m_view = view;
    view->setTitle(u"Ravelo Preferences"_s);
    view->setFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                   Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    view->setResizeMode(QQuickView::SizeRootObjectToView);
    view->setMinimumSize(contentSize);
    view->setMaximumSize(contentSize);
    view->resize(contentSize);
    view->setInitialProperties({{u"trust"_s, QVariant::fromValue<QObject*>(m_trust.data())}});
    view->setSource(QUrl(u"qrc:/Ravelo/settings/SettingsView.qml"_s));
    if (view->status() != QQuickView::Ready) {
        for (const QQmlError& error : view->errors()) {
            qCWarning(lcSettings) << error.toString();
        }
    }
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        view->setPosition(area.center() - QPoint(contentSize.width(), contentSize.height()) / 2);
    }
    emit windowCreated(view);
    view->show();
    view->raise();
    view->requestActivate();
}

bool SettingsWindow::isVisible() const
{
    return m_view && m_view->isVisible();
}

QQuickWindow* SettingsWindow::window() const
{
    return m_view;
}
