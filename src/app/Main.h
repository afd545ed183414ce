#pragma once

namespace ravelo {

/// Dispatches the command line: `ravelo` starts the tray application,
/// `ravelo run …` and `ravelo trigger` are the headless commands.
int main(int argc, char* argv[]);

} // namespace ravelo
