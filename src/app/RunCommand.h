#pragma once

namespace ravelo {

/// `ravelo run N` and `ravelo run --custom TEXT`: runs one prompt on standard input
/// and streams the answer to standard output. Needs no display.
int runCommand(int argc, char* argv[]);

} // namespace ravelo
