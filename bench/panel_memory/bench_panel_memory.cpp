// How much memory a running ravelo takes: idle after start-up, once the first panel shows,
// after ten triggers (each panel closed with Esc before the next) and once the last panel is
// closed, beside a bare Qt Quick window measured the same way in the same run. Prints ROW
// lines (see scripts/bench). Needs an X server; starts openbox when no window manager runs:
//
//   tests/support/with-xvfb build/bench/bench_panel_memory
#include "PanelBench.h"

#include <QGuiApplication>
#include <QThread>

#include <cstdio>

namespace {

constexpr int triggers = 10;
// Time for the frame after the card settled, and whatever it frees, before reading.
constexpr int readDelayMs = 300;

} // namespace

int main(int argc, char** argv)
{
    if (bench::isBareWindowMode(argc, argv)) {
        return bench::runBareWindow(argc, argv);
    }
    QGuiApplication app(argc, argv);
    bench::Desktop desktop;
    bench::putTextOnClipboard();
    std::vector<double> idle, first, afterAll, closed, bareIdle, bareShown;
    const int samples = bench::sampleCount(3, 1);
    for (int i = 0; i < samples; ++i) {
        {
            bench::Instance ravelo(bench::raveloProgram());
            if (!ravelo.start()) {
                std::fprintf(stderr, "ravelo did not start\n");
                return 1;
            }
            idle.push_back(ravelo.residentMb());
            ravelo.trigger(desktop);
            QThread::msleep(readDelayMs);
            first.push_back(ravelo.residentMb());
            for (int n = 1; n < triggers; ++n) {
                ravelo.close(desktop);
                ravelo.trigger(desktop);
            }
            QThread::msleep(readDelayMs);
            afterAll.push_back(ravelo.residentMb());
            ravelo.close(desktop);
            QThread::msleep(readDelayMs);
            closed.push_back(ravelo.residentMb());
            std::fprintf(stderr,
                         "ravelo: idle %.1f MB, first panel %.1f MB, %d triggers %.1f MB, "
                         "closed %.1f MB\n",
                         idle.back(), first.back(), triggers, afterAll.back(), closed.back());
        }
        bench::Instance bare({});
        if (!bare.start()) {
            std::fprintf(stderr, "the bare window did not start\n");
            return 1;
        }
        bareIdle.push_back(bare.residentMb());
        bare.trigger(desktop);
        QThread::msleep(readDelayMs);
        bareShown.push_back(bare.residentMb());
        std::fprintf(stderr, "bare window: idle %.1f MB, shown %.1f MB\n", bareIdle.back(),
                     bareShown.back());
    }
    const QString renderer = bench::rendererName();
    const QString baseline = QStringLiteral("bare Qt Quick window (%1)").arg(renderer);
    bench::printRow(
        QStringLiteral("resident memory idle, before the first trigger (%1)").arg(renderer),
        QStringLiteral("MB"), idle,
        QStringLiteral("bare Qt Quick app before its window (%1)").arg(renderer), bareIdle,
        QStringLiteral("-"));
    bench::printRow(QStringLiteral("resident memory after the first panel (%1)").arg(renderer),
                    QStringLiteral("MB"), first, baseline, bareShown, QStringLiteral("<= 70"));
    bench::printRow(
        QStringLiteral("resident memory after %1 triggers (%2)").arg(triggers).arg(renderer),
        QStringLiteral("MB"), afterAll, baseline, bareShown, QStringLiteral("<= 70"));
    bench::printRow(QStringLiteral("resident memory once that panel is closed (%1)").arg(renderer),
                    QStringLiteral("MB"), closed, baseline, bareShown, QStringLiteral("<= 70"));
    return 0;
}
