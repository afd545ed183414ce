#include "CommandBench.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace bench {

bool quick()
{
    return qEnvironmentVariable("RAVELO_BENCH_QUICK") == QLatin1String("1");
}

QString raveloBinary()
{
    const QString fromEnvironment = qEnvironmentVariable("RAVELO_BINARY");
    if (!fromEnvironment.isEmpty()) {
        return fromEnvironment;
    }
    return QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/../ravelo"))
        .canonicalFilePath();
}

QString besideThisProgram(const QString& name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
}

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

void readAvailable(int fd, std::string& into, bool& open)
{
    char buffer[65536];
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got > 0) {
        into.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
        open = false;
    }
}

} // namespace

ChildRun runChild(const QString& program, const QStringList& arguments,
                  const QStringList& environment, const std::string& input)
{
    QProcessEnvironment full = QProcessEnvironment::systemEnvironment();
    for (const QString& entry : environment) {
        full.insert(entry.section(QLatin1Char('='), 0, 0), entry.section(QLatin1Char('='), 1));
    }
    std::vector<std::string> argStrings{program.toStdString()};
    for (const QString& argument : arguments) {
        argStrings.push_back(argument.toStdString());
    }
    std::vector<std::string> envStrings;
    for (const QString& entry : full.toStringList()) {
        envStrings.push_back(entry.toStdString());
    }
    std::vector<char*> argv;
    for (std::string& s : argStrings) {
        argv.push_back(s.data());
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& s : envStrings) {
        envp.push_back(s.data());
    }
    envp.push_back(nullptr);

    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 ||
        ::pipe2(err, O_CLOEXEC) != 0) {
        std::perror("pipe");
        return {};
    }
    // The whole input fits the pipe: it is written before the child starts.
    if (!input.empty() &&
        ::write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        std::perror("write");
    }
    ::close(in[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);

    ChildRun run;
    pid_t pid = 0;
    const auto start = std::chrono::steady_clock::now();
    const int spawned = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    if (spawned != 0) {
        std::fprintf(stderr, "cannot start %s: %s\n", argv[0], std::strerror(spawned));
        ::close(out[0]);
        ::close(err[0]);
        return run;
    }

    bool outOpen = true;
    bool errOpen = true;
    while (outOpen || errOpen) {
        pollfd fds[2] = {{outOpen ? out[0] : -1, POLLIN, 0}, {errOpen ? err[0] : -1, POLLIN, 0}};
        if (::poll(fds, 2, 30000) <= 0) {
            break;
        }
        if (fds[0].revents != 0) {
            readAvailable(out[0], run.out, outOpen);
            if (run.firstByteMs < 0 && !run.out.empty()) {
                run.firstByteMs = millisecondsSince(start);
            }
        }
        if (fds[1].revents != 0) {
            readAvailable(err[0], run.err, errOpen);
        }
    }
    ::close(out[0]);
    ::close(err[0]);
    int status = 0;
    if (outOpen || errOpen) {
        ::kill(pid, SIGKILL);
    }
    ::waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

SocketServer SocketServer::tcp(std::function<void(int)> answer)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 16) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        qFatal("cannot listen on 127.0.0.1: %s", std::strerror(errno));
    }
    return SocketServer(listener, ntohs(address.sin_port), std::move(answer));
}

SocketServer SocketServer::local(const std::string& path, std::function<void(int)> answer)
{
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ::unlink(path.c_str());
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 16) != 0) {
        qFatal("cannot listen on %s: %s", path.c_str(), std::strerror(errno));
    }
    return SocketServer(listener, 0, std::move(answer));
}

SocketServer::SocketServer(int listener, int port, std::function<void(int)> answer)
    : m_listener(listener)
    , m_port(port)
    , m_thread([listener, answer = std::move(answer)] {
        for (;;) {
            const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) {
                if (errno == EINTR || errno == ECONNABORTED) {
                    continue;
                }
                return;
            }
            answer(connection);
            ::close(connection);
        }
    })
{}

SocketServer::SocketServer(SocketServer&& other) noexcept
    : m_listener(std::exchange(other.m_listener, -1))
    , m_port(other.m_port)
    , m_thread(std::move(other.m_thread))
{}

SocketServer::~SocketServer()
{
    if (m_listener >= 0) {
        ::shutdown(m_listener, SHUT_RDWR);
        ::close(m_listener);
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

double median(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

namespace {

std::string joined(const std::vector<double>& values)
{
    if (values.empty()) {
        return "-";
    }
    std::string text;
    for (const double value : values) {
        char number[32];
        std::snprintf(number, sizeof number, "%.6g", value);
        if (!text.empty()) {
            text += ',';
        }
        text += number;
    }
    return text;
}

} // namespace

void printRow(const char* measure, const char* unit, const std::vector<double>& samples,
              const char* baselineName, const std::vector<double>& baseline, const char* goal)
{
    std::printf("ROW\t%s\t%s\t%s\t%s\t%s\t%s\n", measure, unit, joined(samples).c_str(),
                baselineName, joined(baseline).c_str(), goal);
    std::fflush(stdout);
}

} // namespace bench
