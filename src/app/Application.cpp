#include "app/Application.h"

#include "app/AppDelegate.h"
#include "app/AppLogging.h"
#include "app/AppState.h"
#include "app/RaveloApp.h"
#include "app/SingleInstance.h"
#include "model/PreferenceStore.h"
#include "model/Translations.h"

#include <QApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace ravelo {
namespace {

// SIGTERM and SIGINT only write a byte here; the event loop reads it and quits, so the
// instance socket is closed and removed as on any other way out.
int signalPipe[2] = {-1, -1};

void writeSignalByte(int)
{
    const int savedErrno = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = savedErrno;
}

bool quitOnTerminationSignals(QObject* parent)
{
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return false;
    }
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, parent);
    QObject::connect(notifier, &QSocketNotifier::activated, parent, [] {
        char bytes[16];
        while (::read(signalPipe[0], bytes, sizeof bytes) > 0) {
        }
        qCDebug(lcApp, "Quitting on a termination signal");
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = writeSignalByte;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGTERM, &action, nullptr) == 0 &&
           ::sigaction(SIGINT, &action, nullptr) == 0;
}

} // namespace

int runApplication(int argc, char* argv[], StartAction action)
{
    // In a Wayland session with XWayland, Ravelo's windows are X11 windows: Wayland lets no
    // client place its window or keep it above others, and the panel needs both.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") &&
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        !qEnvironmentVariableIsEmpty("DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }

    // Takes Qt's own options (-platform, -style, …) off the command line.
    QApplication app(argc, argv);
    installTranslations(app);
    QStringList rest = QCoreApplication::arguments().mid(1);
    if (action == StartAction::OpenPreferences) {
        rest.removeFirst();
    }
    if (!rest.isEmpty()) {
        std::fputs(
            qPrintable(QCoreApplication::translate(
                           "CommandLine", "ravelo: unknown option '%1' (see ravelo --help)\n")
                           .arg(rest.first())),
            stderr);
        return 2;
    }

    // A second start only hands over to the instance already running, which opens its
    // preferences.
    if (SingleInstance::send(SingleInstance::Request::Activate)) {
        return 0;
    }

    QApplication::setOrganizationName(QStringLiteral("Ravelo"));
    QApplication::setApplicationName(QStringLiteral("Ravelo"));
    QApplication::setApplicationVersion(QStringLiteral(RAVELO_VERSION));
    // Docks and task switchers find the desktop entry, and with it the icon, by this name.
    QGuiApplication::setDesktopFileName(QStringLiteral("ravelo"));
    QApplication::setWindowIcon(RaveloApp::icon());
    QApplication::setQuitOnLastWindowClosed(false);

    // Caught before anyone can find this instance on its socket and signal it.
    if (!quitOnTerminationSignals(&app)) {
        qCWarning(lcApp, "Cannot catch SIGTERM and SIGINT: %s", std::strerror(errno));
    }

    SingleInstance instance;
    if (!instance.listen()) {
        // Another instance started at the same moment and won.
        if (SingleInstance::send(SingleInstance::Request::Activate)) {
            return 0;
        }
        qCWarning(lcApp, "Running without the instance socket: \"ravelo trigger\" cannot "
                         "reach this instance.");
    }
    QObject::connect(&instance, &SingleInstance::quitRequested, &app, &QCoreApplication::quit,
                     Qt::QueuedConnection);

    PreferenceStore preferences;
    preferences.useKeyring();
    AppState appState(&preferences);
    RaveloApp raveloApp(&appState);
    AppDelegate* delegate = raveloApp.appDelegate();
    QObject::connect(&instance, &SingleInstance::activationRequested, delegate,
                     &AppDelegate::openSettings);
    // "ravelo trigger" takes the path a double copy takes, queued like it, armed or not.
    QObject::connect(&instance, &SingleInstance::triggerRequested, delegate,
                     &AppDelegate::handleTrigger, Qt::QueuedConnection);

    delegate->applicationDidFinishLaunching();
    if (action == StartAction::OpenPreferences) {
        delegate->openSettings();
    }
    return app.exec();
}

int applicationMain(int argc, char* argv[])
{
    const bool preferences = argc > 1 && std::strcmp(argv[1], "preferences") == 0;
    return runApplication(argc, argv,
                          preferences ? StartAction::OpenPreferences : StartAction::None);
}

} // namespace ravelo
