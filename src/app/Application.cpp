#include "app/Application.h"

#include "app/AppDelegate.h"
#include "app/AppLogging.h"
#include "app/AppState.h"
#include "app/RaveloApp.h"
#include "app/SingleInstance.h"
#include "model/PreferenceStore.h"

#include <QApplication>

#include <cstdio>

namespace ravelo {

int runApplication(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fputs(
            "Ravelo needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n",
            stderr);
        return 1;
    }
    // A second start only hands over to the instance already running.
    if (SingleInstance::send(SingleInstance::Request::Activate)) {
        return 0;
    }

    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Ravelo"));
    QApplication::setApplicationName(QStringLiteral("Ravelo"));
    QApplication::setApplicationVersion(QStringLiteral(RAVELO_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    if (!instance.listen()) {
        // Another instance started at the same moment and won.
        if (SingleInstance::send(SingleInstance::Request::Activate)) {
            return 0;
        }
        qCWarning(lcApp, "Running without the instance socket: \"ravelo trigger\" cannot "
                         "reach this instance.");
    }

    PreferenceStore preferences;
    AppState appState(&preferences);
    RaveloApp raveloApp(&appState);
    AppDelegate* delegate = raveloApp.appDelegate();
    QObject::connect(&instance, &SingleInstance::activationRequested, delegate,
                     &AppDelegate::openSettings);
    // "ravelo trigger" takes the path a double copy takes, queued like it, armed or not.
    QObject::connect(&instance, &SingleInstance::triggerRequested, delegate,
                     &AppDelegate::handleTrigger, Qt::QueuedConnection);

    delegate->applicationDidFinishLaunching();
    return app.exec();
}

} // namespace ravelo
