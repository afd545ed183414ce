#pragma once

namespace ravelo {

/// Dispatches the command line: `ravelo` starts the tray application,
/// `ravelo preferences` starts it with its preferences open; `ravelo run …`, `ravelo
/// trigger` and `ravelo quit` are the headless commands.
int main(int argc, char* argv[]);

} // namespace ravelo
