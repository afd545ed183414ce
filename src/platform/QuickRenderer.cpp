#include "platform/QuickRenderer.h"

#include <QQuickWindow>
#include <QSGRendererInterface>

namespace {

bool rendererChosenByUser()
{
    return !qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") ||
           !qEnvironmentVariableIsEmpty("QMLSCENE_DEVICE") ||
           !qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND");
}

} // namespace

void chooseQuickRenderer()
{
    // Asking again once the scene graph runs would only earn Qt's warning.
    static bool chosen = false;
    if (chosen || rendererChosenByUser()) {
        return;
    }
    chosen = true;
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}

QString quickRendererName()
{
    if (!rendererChosenByUser()) {
        return QStringLiteral("software");
    }
    const QString backend = qEnvironmentVariableIsEmpty("QMLSCENE_DEVICE")
                                ? qEnvironmentVariable("QT_QUICK_BACKEND")
                                : qEnvironmentVariable("QMLSCENE_DEVICE");
    return backend.isEmpty() ? QStringLiteral("rhi") : backend;
}
