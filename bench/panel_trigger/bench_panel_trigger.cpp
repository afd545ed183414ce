// How fast the quick panel of a running ravelo shows.
//
// Without arguments it prints ROW lines (see scripts/bench) for the first trigger after
// start-up: when the card's first frame is on the screen and how long the card takes after
// that to settle at its height, beside a bare Qt Quick window made and shown on the same kind
// of request. Both are triggered through their instance socket, not through a `ravelo trigger`
// process, so that only the panel's own path is timed. Needs an X server; starts openbox when
// no window manager runs:
//
//   tests/support/with-xvfb build/bench/bench_panel_trigger
//
// With a ravelo and sizes in megabytes it times large copies instead. Per trigger it prints:
//   read      this process's QClipboard::text() of the same copy (Qt's X transfer alone)
//   mapped    from `ravelo trigger` starting to the panel's window being mapped
//   drawn     from `ravelo trigger` starting to the card showing on the screen
//   answer    how long a second `ravelo trigger` takes to be answered right after
//   again     mapped and drawn for a trigger after Esc closed the panel (the panel exists)
//   peak RSS  the ravelo process's VmHWM afterwards
//
//   tests/support/with-xvfb build/bench/bench_panel_trigger build/ravelo 1 20
#include "PanelBench.h"

#include <QClipboard>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr uint32_t cardBackground = 0x3e3f40;

QByteArray vmHwm(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) {
        return "?";
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:")) {
            return line.mid(6).trimmed();
        }
    }
    return "?";
}

// Whether the card's background colour shows in the screen's middle column.
bool cardShows(xcb_connection_t* c, const xcb_screen_t* screen)
{
    auto* image = xcb_get_image_reply(c,
                                      xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root,
                                                    int16_t(screen->width_in_pixels / 2), 0, 1,
                                                    screen->height_in_pixels, ~0u),
                                      nullptr);
    bool found = false;
    if (image) {
        const auto* pixels = reinterpret_cast<const uint32_t*>(xcb_get_image_data(image));
        const int n = xcb_get_image_data_length(image) / 4;
        for (int i = 0; i < n && !found; ++i) {
            found = (pixels[i] & 0xffffff) == cardBackground;
        }
    }
    std::free(image);
    return found;
}

bool waitForMap(xcb_connection_t* c, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
            const bool mapped = (event->response_type & 0x7f) == XCB_MAP_NOTIFY;
            std::free(event);
            if (mapped) {
                return true;
            }
        }
        QThread::usleep(200);
    }
    return false;
}

} // namespace

int firstTrigger()
{
    bench::Desktop desktop;
    bench::putTextOnClipboard();
    std::vector<double> first, settled, again, bareFirst, bareSettled;
    const int samples = bench::sampleCount(5, 2);
    for (int i = 0; i < samples; ++i) {
        {
            bench::Instance ravelo(bench::raveloProgram());
            if (!ravelo.start()) {
                std::fprintf(stderr, "ravelo did not start\n");
                return 1;
            }
            const bench::Appearance shown = ravelo.trigger(desktop);
            first.push_back(shown.firstFrameMs);
            settled.push_back(shown.settledMs - shown.firstFrameMs);
            ravelo.close(desktop);
            again.push_back(ravelo.trigger(desktop).firstFrameMs);
            std::fprintf(stderr, "ravelo: first frame %.1f ms, settled %.1f ms, again %.1f ms\n",
                         shown.firstFrameMs, shown.settledMs, again.back());
        }
        bench::Instance bare({});
        if (!bare.start()) {
            std::fprintf(stderr, "the bare window did not start\n");
            return 1;
        }
        const bench::Appearance shown = bare.trigger(desktop);
        bareFirst.push_back(shown.firstFrameMs);
        bareSettled.push_back(shown.settledMs - shown.firstFrameMs);
        std::fprintf(stderr, "bare window: first frame %.1f ms, settled %.1f ms\n",
                     shown.firstFrameMs, shown.settledMs);
    }
    const QString renderer = bench::rendererName();
    const QString baseline = QStringLiteral("bare Qt Quick window (%1)").arg(renderer);
    bench::printRow(QStringLiteral("first trigger after start: first frame (%1)").arg(renderer),
                    QStringLiteral("ms"), first, baseline, bareFirst, QStringLiteral("<= 100"));
    bench::printRow(
        QStringLiteral("first trigger: settled after its first frame (%1)").arg(renderer),
        QStringLiteral("ms"), settled, baseline, bareSettled, QStringLiteral("one frame (<= 17)"));
    bench::printRow(QStringLiteral("trigger after Esc: first frame (%1)").arg(renderer),
                    QStringLiteral("ms"), again, {}, {}, QStringLiteral("<= 100"));
    return 0;
}

int main(int argc, char** argv)
{
    if (bench::isBareWindowMode(argc, argv)) {
        return bench::runBareWindow(argc, argv);
    }
    QGuiApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.isEmpty()) {
        return firstTrigger();
    }
    const QString ravelo = args.takeFirst();
    if (args.isEmpty()) {
        args << QStringLiteral("1") << QStringLiteral("20");
    }

    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral("config/Ravelo"));
    QDir(home.path()).mkpath(QStringLiteral("run"));
    QFile::setPermissions(home.filePath(QStringLiteral("run")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QFile prefs(home.filePath(QStringLiteral("config/Ravelo/Ravelo.conf")));
    prefs.open(QIODevice::WriteOnly);
    prefs.write("[General]\nhas_completed_onboarding=true\nuse_double_copy=false\n");
    prefs.close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.filePath(QStringLiteral("run")));

    QProcess openbox;
    openbox.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
    QThread::msleep(1000);

    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;

    std::printf("%6s %8s %10s %9s %10s %14s %12s\n", "MB", "read ms", "mapped ms", "drawn ms",
                "answer ms", "again ms", "peak RSS");
    for (const QString& size : args) {
        QProcess instance;
        instance.setProcessEnvironment(env);
        instance.setProcessChannelMode(QProcess::ForwardedChannels);
        instance.start(ravelo, {});
        instance.waitForStarted();
        QThread::msleep(1500);

        const QByteArray line = QByteArray("0123456789 abcdefghij ").repeated(4) + '\n';
        const QByteArray text = line.repeated(int(size.toDouble() * 1e6 / line.size()));
        QProcess xclip;
        xclip.start(QStringLiteral("xclip"),
                    {QStringLiteral("-selection"), QStringLiteral("clipboard")});
        xclip.write(text);
        xclip.closeWriteChannel();
        xclip.waitForFinished();
        QThread::msleep(300);

        QElapsedTimer timer;
        timer.start();
        const qsizetype readSize = QGuiApplication::clipboard()->text().size();
        const qint64 readMs = timer.elapsed();
        if (readSize != text.size()) {
            std::fprintf(stderr, "read %lld of %lld characters\n", qlonglong(readSize),
                         qlonglong(text.size()));
        }

        // `ravelo trigger`: milliseconds until the panel is mapped (-1: never) and drawn.
        const auto timeTrigger = [&]() -> std::pair<qint64, qint64> {
            const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
            xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &mask);
            xcb_flush(c);
            QProcess trigger;
            trigger.setProcessEnvironment(env);
            timer.restart();
            trigger.start(ravelo, {QStringLiteral("trigger")});
            const qint64 mapped = waitForMap(c, 600000) ? timer.elapsed() : -1;
            while (!cardShows(c, screen) && timer.elapsed() < 600000) {
                QThread::usleep(500);
            }
            const qint64 drawn = timer.elapsed();
            trigger.waitForFinished();
            const uint32_t none = 0;
            xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &none);
            return {mapped, drawn};
        };
        const auto [mappedMs, drawnMs] = timeTrigger();

        timer.restart();
        QProcess again;
        again.setProcessEnvironment(env);
        again.start(ravelo, {QStringLiteral("trigger")});
        again.waitForFinished(600000);
        const qint64 answerMs = timer.elapsed();
        QThread::msleep(500);

        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("key"), QStringLiteral("Escape")});
        QThread::msleep(500);
        while (cardShows(c, screen)) {
            QThread::msleep(50);
        }
        const auto [againMapped, againDrawn] = timeTrigger();

        std::printf("%6s %8lld %10lld %9lld %10lld %6lld / %5lld %12s%s\n", qPrintable(size),
                    readMs, mappedMs, drawnMs, answerMs, againMapped, againDrawn,
                    vmHwm(instance.processId()).constData(),
                    again.exitCode() == 0 ? "" : "  (second trigger failed)");
        std::fflush(stdout);
        instance.kill();
        instance.waitForFinished();
    }
    xcb_disconnect(c);
    openbox.terminate();
    openbox.waitForFinished();
    return 0;
}
