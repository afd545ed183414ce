#include "app/Main.h"

#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

int main(int argc, char* argv[])
{
    return ravelo::main(argc, argv);
}
