#pragma once

// What the command-line benchmarks share: finding the programs, starting a child and timing
// its first output byte, small loopback servers in a thread of their own, and the ROW line.
#include <QString>
#include <QStringList>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace bench {

/// Whether RAVELO_BENCH_QUICK=1 asks for fewer samples.
bool quick();

/// The ravelo to measure: RAVELO_BINARY, else the one of this build tree.
QString raveloBinary();
/// A program of this benchmark folder (the baseline clients).
QString besideThisProgram(const QString& name);

struct ChildRun {
    double firstByteMs = -1; ///< from starting the program to its first byte on stdout
    int exitCode = -1;       ///< -1 when it did not end normally
    std::string out;
    std::string err;
};

/// Runs `program` with `arguments` and `environment` (NAME=value, added to this process's),
/// feeding it `input` on stdin, and waits for its end.
ChildRun runChild(const QString& program, const QStringList& arguments,
                  const QStringList& environment, const std::string& input = {});

/// A server on a listening socket that answers each connection in its own thread until
/// destroyed. `answer` gets the connected socket.
class SocketServer {
public:
    /// A TCP server on 127.0.0.1 with a port of its own.
    static SocketServer tcp(std::function<void(int)> answer);
    /// A local server on the socket file `path`.
    static SocketServer local(const std::string& path, std::function<void(int)> answer);

    SocketServer(SocketServer&& other) noexcept;
    ~SocketServer();
    int port() const { return m_port; }

private:
    SocketServer(int listener, int port, std::function<void(int)> answer);

    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
};

/// Median, for the human-readable lines on stderr.
double median(std::vector<double> values);

/// One line of the benchmark table on stdout.
void printRow(const char* measure, const char* unit, const std::vector<double>& samples,
              const char* baselineName, const std::vector<double>& baseline, const char* goal);

} // namespace bench
