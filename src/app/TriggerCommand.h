#pragma once

namespace ravelo {

/// `ravelo trigger`: asks the running instance to open its quick panel, as a double
/// copy would. Returns 0 when it was reached, 1 when Ravelo is not running.
int triggerCommand(int argc, char* argv[]);

} // namespace ravelo
