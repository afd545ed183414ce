#pragma once

namespace ravelo {

/// `ravelo trigger`: asks the running instance to open its quick panel, as a double
/// copy would. Returns 0 when it was reached, 1 when Ravelo is not running.
int triggerCommand(int argc, char* argv[]);

/// `ravelo quit`: asks the running instance to quit and waits until it has let go of its
/// socket. Returns 0 when it was reached, 1 when Ravelo is not running.
int quitCommand(int argc, char* argv[]);

} // namespace ravelo
