#include "app/Main.h"

int main(int argc, char* argv[])
{
    return ravelo::main(argc, argv);
}
