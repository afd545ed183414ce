#include "platform/ModuleWindow.h"

#include "platform/QuickRenderer.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickView>
#include <QScreen>

namespace {

/// Esc and the platform's close shortcut (Ctrl+W) close the window when no control inside
/// used the key: an open drop-down list, a prompt being edited or a hotkey being recorded
/// takes Esc first.
class ModuleView : public QQuickView {
public:
    using QQuickView::QQuickView;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        QQuickView::keyPressEvent(event);
        if (event->isAccepted()) {
            return;
        }
        if ((event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) ||
            event->matches(QKeySequence::Close)) {
            event->accept();
            close();
        }
    }
};

} // namespace

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
    auto* view = new ModuleView(engine, nullptr);
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
