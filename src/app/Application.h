#pragma once

namespace ravelo {

enum class StartAction { None, OpenPreferences };

/// Starts the tray application, or hands over to the instance already running. Qt's
/// standard options are taken from the command line; "preferences" may precede them.
int runApplication(int argc, char* argv[], StartAction action);

/// The application program's entry: `ravelo-gui [preferences] [Qt options]`, as `ravelo`
/// starts it.
int applicationMain(int argc, char* argv[]);

} // namespace ravelo
