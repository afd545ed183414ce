#pragma once

namespace ravelo {

/// Starts the tray application, or hands over to the instance already running.
int runApplication(int argc, char* argv[]);

} // namespace ravelo
