#include "app/TriggerCommand.h"

#include "app/SingleInstance.h"

#include <QCoreApplication>

#include <cstdio>

namespace ravelo {

int triggerCommand(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc > 2) {
        std::fputs("ravelo trigger: takes no arguments\n", stderr);
        return 2;
    }
    if (SingleInstance::send(SingleInstance::Request::Trigger)) {
        return 0;
    }
    std::fputs("Ravelo is not running.\n", stderr);
    return 1;
}

} // namespace ravelo
