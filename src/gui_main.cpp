#include "app/Application.h"

#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

int main(int argc, char* argv[])
{
    return ravelo::applicationMain(argc, argv);
}
