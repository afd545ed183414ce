#include "app/Main.h"

#include "app/RunCommand.h"
#include "app/SingleInstance.h"
#include "app/TriggerCommand.h"
#include "model/Translations.h"

#include <QCoreApplication>
#include <QString>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace ravelo {
namespace {

constexpr const char* usageText = QT_TRANSLATE_NOOP(
    "CommandLine",
    "Usage:\n"
    "  ravelo                        start Ravelo in the tray (or open the preferences\n"
    "                                of the instance that is already running)\n"
    "  ravelo preferences            open the preferences of the running instance, or\n"
    "                                start Ravelo and open them\n"
    "  ravelo quit                   quit the running instance\n"
    "  ravelo run N                  run prompt number N on the text read from standard\n"
    "                                input and print the answer as it streams in\n"
    "  ravelo run --custom TEXT      run TEXT as a one-off instruction the same way\n"
    "  ravelo trigger                open the quick panel of the running instance, as a\n"
    "                                double copy would (bind this to a desktop shortcut)\n"
    "  ravelo --version              show the version\n"
    "  ravelo --help                 show this help\n"
    "\n"
    "Starting Ravelo (with or without \"preferences\") also accepts Qt's standard options,\n"
    "such as -platform xcb or -style Fusion.\n"
    "\n"
    "Exit status of run: 0 when the answer arrived, 1 when the request failed,\n"
    "2 when no prompt has that number or no API key is set.\n"
    "Exit status of trigger and quit: 1 when Ravelo is not running.\n");

/// Prints `text` in the user's language; there is no application object yet, so one is made
/// for it.
int printTranslated(int argc, char* argv[], std::FILE* stream, int status,
                    QString (*text)(const char* command))
{
    const char* command = argc > 1 ? argv[1] : "";
    QCoreApplication app(argc, argv);
    installTranslations(app);
    const QByteArray bytes = text(command).toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    return status;
}

QString noGraphicalSession(const char*)
{
    return QCoreApplication::translate(
        "CommandLine",
        "Ravelo needs a graphical session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n");
}

QString usage(const char*)
{
    return QCoreApplication::translate("CommandLine", usageText);
}

QString unknownCommand(const char* command)
{
    return QCoreApplication::translate("CommandLine", "ravelo: unknown command '%1'")
               .arg(QString::fromLocal8Bit(command)) +
           QLatin1String("\n\n") + usage(command);
}

constexpr const char* applicationProgramName = "ravelo-gui";

/// This program's own path, symbolic links resolved.
std::string ownPath()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) {
        return {};
    }
    return std::string(path, static_cast<size_t>(length));
}

/// The application program: in Ravelo's libexec folder once installed, next to this program
/// in the build tree.
std::string applicationProgram(const std::string& self)
{
    const std::string folder = self.substr(0, self.rfind('/') + 1);
    for (const std::string& candidate :
         {folder + RAVELO_LIBEXEC_FROM_BIN "/" + applicationProgramName,
          folder + applicationProgramName}) {
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

/// Replaces this process by the application with the same arguments. argv[0] becomes this
/// program's path: the window class and the autostart entry are taken from it.
int startApplication(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return printTranslated(argc, argv, stderr, 1, noGraphicalSession);
    }
    // A plain start (or "preferences") while Ravelo runs only hands over to it, which opens
    // its preferences. Qt's options are left to the application, which checks them first.
    const bool plainStart = argc == 1 || (argc == 2 && std::strcmp(argv[1], "preferences") == 0);
    if (plainStart) {
        int noArguments = 1;
        const QCoreApplication app(noArguments, argv);
        if (SingleInstance::send(SingleInstance::Request::Activate)) {
            return 0;
        }
    }

    std::string self = ownPath();
    const std::string program = self.empty() ? std::string() : applicationProgram(self);
    if (program.empty()) {
        std::fprintf(stderr,
                     "ravelo: the application program %s is neither beside %s nor in its "
                     "libexec folder\n",
                     applicationProgramName, self.empty() ? argv[0] : self.c_str());
        return 1;
    }
    std::vector<char*> arguments(argv, argv + argc + 1);
    arguments[0] = self.data();
    ::execv(program.c_str(), arguments.data());
    std::fprintf(stderr, "ravelo: cannot start %s: %s\n", program.c_str(), std::strerror(errno));
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    const QString command = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (command == QLatin1String("--help") || command == QLatin1String("-h") ||
        command == QLatin1String("help")) {
        return printTranslated(argc, argv, stdout, 0, usage);
    }
    if (command == QLatin1String("--version")) {
        std::puts("Ravelo " RAVELO_VERSION);
        return 0;
    }
    if (command == QLatin1String("run")) {
        return runCommand(argc, argv);
    }
    if (command == QLatin1String("trigger")) {
        return triggerCommand(argc, argv);
    }
    if (command == QLatin1String("quit")) {
        return quitCommand(argc, argv);
    }
    if (command == QLatin1String("preferences")) {
        return startApplication(argc, argv);
    }
    // Anything else starting with a dash is left to Qt's own options; the application
    // rejects what Qt does not know.
    if (!command.isEmpty() && !command.startsWith(QLatin1Char('-'))) {
        return printTranslated(argc, argv, stderr, 2, unknownCommand);
    }
    return startApplication(argc, argv);
}

} // namespace ravelo
