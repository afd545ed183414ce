#include "platform/ModuleWindow.h"

#include "platform/QuickRenderer.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickView>
#include <QScreen>

std::unique_ptr<QQmlEngine> createModuleEngine()
{
    chooseQuickRenderer();
    auto engine = std::make_unique<QQmlEngine>();
    // The module's QML files find each other through the module, which lives under qrc:/.
    engine->addImportPath(QStringLiteral("qrc:/"));
    return engine;
}

QQuickView* createModuleWindow(QQmlEngine* engine, const ModuleWindowSpec& spec,
                               const QLoggingCategory& log)
{
    auto* view = new QQuickView(engine, nullptr);
    view->setTitle(spec.title);
    view->setFlags(spec.flags);
    view->setResizeMode(QQuickView::SizeRootObjectToView);
    view->setMinimumSize(spec.size);
    view->setMaximumSize(spec.size);
    view->resize(spec.size);
    view->setInitialProperties(spec.initialProperties);
    view->setSource(QUrl(spec.source));
    if (view->status() != QQuickView::Ready) {
        for (const QQmlError& error : view->errors()) {
            qCWarning(log) << error.toString();
        }
    }
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        view->setPosition(area.center() - QPoint(spec.size.width(), spec.size.height()) / 2);
    }
    return view;
}

void showInFront(QQuickView* view)
{
    view->show();
    view->raise();
    view->requestActivate();
}
