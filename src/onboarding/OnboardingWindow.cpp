#include "onboarding/OnboardingWindow.h"

#include "platform/AccessibilityTrust.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QScreen>

Q_LOGGING_CATEGORY(lcOnboarding, "ravelo.onboarding")

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
    // X11 window managers always draw a title bar for decorated windows: an empty title
    // keeps the close button and the move by the title bar, with nothing written in it.
    view->setTitle(QString());
    view->setFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                   Qt::WindowCloseButtonHint);
    view->setResizeMode(QQuickView::SizeRootObjectToView);
    view->setMinimumSize(contentSize);
    view->setMaximumSize(contentSize);
    view->resize(contentSize);
    view->setInitialProperties({{u"trust"_s, QVariant::fromValue<QObject*>(m_trust.data())},
                                {u"checkInterval"_s, m_checkInterval}});
    view->setSource(QUrl(u"qrc:/Ravelo/onboarding/OnboardingView.qml"_s));
    if (view->status() != QQuickView::Ready) {
        for (const QQmlError& error : view->errors()) {
            qCWarning(lcOnboarding) << error.toString();
        }
    }
    if (QQuickItem* root = view->rootObject()) {
        connect(root, SIGNAL(completed()), this, SIGNAL(completed()));
    }
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        view->setPosition(area.center() - QPoint(contentSize.width(), contentSize.height()) / 2);
    }
    view->show();
    view->raise();
    view->requestActivate();
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
