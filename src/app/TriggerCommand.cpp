#include "app/TriggerCommand.h"

#include "app/SingleInstance.h"
#include "model/Translations.h"
#include "platform/ActivationToken.h"

#include <QCoreApplication>

#include <cstdio>

namespace ravelo {
namespace {

int sendToInstance(int argc, char* argv[], const char* name, SingleInstance::Request request)
{
    QCoreApplication app(argc, argv);
    installTranslations(app);
    if (argc > 2) {
        std::fputs(
            qPrintable(QCoreApplication::translate("CommandLine", "ravelo %1: takes no arguments\n")
                           .arg(QLatin1String(name))),
            stderr);
        return 2;
    }
    // Started by the desktop's shortcut, the trigger carries the desktop's leave to take the
    // focus along to the panel.
    const QByteArray token = request == SingleInstance::Request::Trigger
                                 ? ActivationToken::fromEnvironment()
                                 : QByteArray();
    if (SingleInstance::send(request, 3000, token)) {
        return 0;
    }
    std::fputs(qPrintable(QCoreApplication::translate("CommandLine", "Ravelo is not running.\n")),
               stderr);
    return 1;
}

} // namespace

int triggerCommand(int argc, char* argv[])
{
    return sendToInstance(argc, argv, "trigger", SingleInstance::Request::Trigger);
}

int quitCommand(int argc, char* argv[])
{
    return sendToInstance(argc, argv, "quit", SingleInstance::Request::Quit);
}

} // namespace ravelo
