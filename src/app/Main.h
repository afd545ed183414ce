#pragma once

namespace ravelo {

/// Dispatches the command line: `ravelo` starts the tray application,
/// `ravelo preferences` starts it with its preferences open; `ravelo run …`, `ravelo
/// trigger` and `ravelo quit` are the headless commands.
///
/// The headless commands, and a start that only hands over to the running instance, need
/// QtCore and QtNetwork alone. The application itself is the program ravelo-gui, which
/// replaces this process (same process id, same arguments).
int main(int argc, char* argv[]);

} // namespace ravelo
