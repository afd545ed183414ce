// How long `ravelo run` takes from its start to the first byte of the answer on standard
// output, beside `curl -N` posting to the same loopback server, which answers both at once.
//
//   build-bench/bench/bench_run_first_byte        (RAVELO_BINARY=... measures another ravelo)
#include "CommandBench.h"
#include "model/PreferenceStore.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Reads the request's head and its body of Content-Length bytes, then sends the stream.
void answerWithStream(int connection)
{
    std::string request;
    size_t headEnd = std::string::npos;
    size_t bodyLength = 0;
    char buffer[16384];
    while (headEnd == std::string::npos || request.size() < headEnd + 4 + bodyLength) {
        const ssize_t got = ::read(connection, buffer, sizeof buffer);
        if (got <= 0) {
            return;
        }
        request.append(buffer, static_cast<size_t>(got));
        if (headEnd == std::string::npos && (headEnd = request.find("\r\n\r\n")) != request.npos) {
            for (const char* name : {"\r\nContent-Length:", "\r\ncontent-length:"}) {
                const size_t at = request.find(name);
                if (at != std::string::npos && at < headEnd) {
                    bodyLength = std::stoul(request.substr(at + std::strlen(name)));
                }
            }
        }
    }
    const std::string response = "HTTP/1.1 200 OK\r\n"
                                 "Content-Type: text/event-stream\r\n"
                                 "Connection: close\r\n\r\n"
                                 "data: {\"choices\":[{\"delta\":{\"content\":\"Hello\"}}]}\n\n"
                                 "data: [DONE]\n\n";
    [[maybe_unused]] const ssize_t sent =
        ::send(connection, response.data(), response.size(), MSG_NOSIGNAL);
    ::shutdown(connection, SHUT_WR);
    while (::read(connection, buffer, sizeof buffer) > 0) {
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString ravelo = bench::raveloBinary();
    const bench::SocketServer server = bench::SocketServer::tcp(answerWithStream);
    const QString base = QStringLiteral("http://127.0.0.1:%1/v1").arg(server.port());

    QTemporaryDir home;
    {
        PreferenceStore preferences(home.filePath(QStringLiteral("config/Ravelo/Ravelo.conf")));
        preferences.setString(Preferences::apiKey, QStringLiteral("sk-bench"));
        preferences.setString(Preferences::baseUrl, base);
    }
    const QStringList raveloEnvironment = {QStringLiteral("XDG_CONFIG_HOME=") +
                                               home.filePath(QStringLiteral("config")),
                                           QStringLiteral("XDG_RUNTIME_DIR=") + home.path(),
                                           QStringLiteral("http_proxy="),
                                           QStringLiteral("HTTP_PROXY="),
                                           QStringLiteral("all_proxy="),
                                           QStringLiteral("ALL_PROXY=")};
    const QStringList curlArguments = {
        QStringLiteral("-N"),
        QStringLiteral("-s"),
        QStringLiteral("--noproxy"),
        QStringLiteral("*"),
        QStringLiteral("-H"),
        QStringLiteral("Authorization: Bearer sk-bench"),
        QStringLiteral("-H"),
        QStringLiteral("Content-Type: application/json"),
        QStringLiteral("--data-binary"),
        QStringLiteral("{\"model\":\"gpt-4o-mini\",\"stream\":true,\"messages\":["
                       "{\"role\":\"system\",\"content\":\"Fix the grammar.\"},"
                       "{\"role\":\"user\",\"content\":\"some copied text\"}]}"),
        base + QStringLiteral("/chat/completions")};

    const int samples = bench::quick() ? 5 : 25;
    std::vector<double> raveloMs;
    std::vector<double> curlMs;
    for (int i = -2; i < samples; ++i) {
        const bench::ChildRun run =
            bench::runChild(ravelo, {QStringLiteral("run"), QStringLiteral("1")}, raveloEnvironment,
                            "some copied text");
        const bench::ChildRun curl =
            bench::runChild(QStringLiteral("/usr/bin/curl"), curlArguments, {});
        if (run.exitCode != 0 || run.out != "Hello" || curl.exitCode != 0 || curl.firstByteMs < 0) {
            std::fprintf(stderr, "ravelo run: %d '%s' %s\ncurl: %d %s\n", run.exitCode,
                         run.out.c_str(), run.err.c_str(), curl.exitCode, curl.err.c_str());
            return 1;
        }
        // The first rounds warm the caches.
        if (i >= 0) {
            raveloMs.push_back(run.firstByteMs);
            curlMs.push_back(curl.firstByteMs);
        }
    }
    std::fprintf(stderr, "ravelo run first byte: median %.2f ms; curl -N: %.2f ms\n",
                 bench::median(raveloMs), bench::median(curlMs));
    bench::printRow("ravelo run: time to first byte", "ms", raveloMs, "curl -N", curlMs,
                    "within 2 ms of curl");
    return 0;
}
