// What `ravelo trigger` costs to start and hand its request over, in instructions counted by
// callgrind (loader, libraries, Qt and Ravelo alike), beside a bare QtCore + QtNetwork client
// doing the same; and which Qt GUI libraries it maps at all. The instance socket is answered
// here, so that only the command is measured.
//
//   build-bench/bench/bench_trigger_startup        (RAVELO_BINARY=... measures another ravelo)
#include "CommandBench.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <cstdio>

#include <unistd.h>

namespace {

void answerOk(int connection)
{
    char request[64];
    if (::read(connection, request, sizeof request) > 0) {
        [[maybe_unused]] const ssize_t sent = ::write(connection, "ok\n", 3);
    }
}

/// Instructions the program executed, as callgrind counts them.
double instructions(const QString& program, const QStringList& arguments,
                    const QStringList& environment, const QString& scratch)
{
    const QString out = scratch + QStringLiteral("/callgrind.out");
    QFile::remove(out);
    const bench::ChildRun run =
        bench::runChild(QStringLiteral("/usr/bin/valgrind"),
                        QStringList{QStringLiteral("--tool=callgrind"),
                                    QStringLiteral("--callgrind-out-file=") + out, program} +
                            arguments,
                        environment);
    QFile file(out);
    if (run.exitCode != 0 || !file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "%s under callgrind: exit %d\n%s\n", qPrintable(program), run.exitCode,
                     run.err.c_str());
        return -1;
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith("summary:")) {
            return line.mid(8).trimmed().toDouble();
        }
    }
    return -1;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir runtime;
    const bench::SocketServer instance = bench::SocketServer::local(
        runtime.filePath(QStringLiteral("ravelo.socket")).toStdString(), answerOk);
    const QStringList environment = {QStringLiteral("XDG_RUNTIME_DIR=") + runtime.path()};
    const QString ravelo = bench::raveloBinary();
    const QString baseline = bench::besideThisProgram(QStringLiteral("trigger_baseline_client"));

    const int samples = bench::quick() ? 1 : 3;
    std::vector<double> raveloCounts;
    std::vector<double> baselineCounts;
    for (int i = 0; i < samples; ++i) {
        raveloCounts.push_back(
            instructions(ravelo, {QStringLiteral("trigger")}, environment, runtime.path()) / 1e6);
        baselineCounts.push_back(instructions(baseline, {}, environment, runtime.path()) / 1e6);
        if (raveloCounts.back() < 0 || baselineCounts.back() < 0) {
            return 1;
        }
    }
    std::fprintf(stderr, "ravelo trigger: %.2f M instructions; bare client: %.2f M\n",
                 bench::median(raveloCounts), bench::median(baselineCounts));
    bench::printRow("ravelo trigger: start-up", "M instructions", raveloCounts,
                    "QtCore+QtNetwork client", baselineCounts, "loads no QtGui/Qml/Quick/Widgets");

    // The loader names every library it maps.
    const bench::ChildRun traced =
        bench::runChild(ravelo, {QStringLiteral("trigger")},
                        environment + QStringList{QStringLiteral("LD_DEBUG=libs")});
    QSet<QString> gui;
    static const QRegularExpression guiLibrary(
        QStringLiteral("libQt6(Gui|Qml|QmlModels|Quick|QuickControls2|Widgets|OpenGL|Svg)\\.so"));
    for (auto match = guiLibrary.globalMatch(QString::fromStdString(traced.err));
         match.hasNext();) {
        gui.insert(match.next().captured(1));
    }
    std::fprintf(stderr, "Qt GUI libraries mapped by ravelo trigger: %s\n",
                 gui.isEmpty() ? "none" : qPrintable(QStringList(gui.values()).join(u' ')));
    bench::printRow("ravelo trigger: Qt GUI libraries mapped", "libraries", {double(gui.size())},
                    "-", {}, "0");
    return 0;
}
