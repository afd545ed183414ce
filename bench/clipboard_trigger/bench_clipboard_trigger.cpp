// What double copy by clipboard ownership costs in the session the benchmark runs in (X11
// with a window manager, or a Wayland session through tests/support/with-sway or with-kwin,
// given the ravelo binary as RAVELO_BINARY or as the first argument):
//   latency   from the second of two copies 0.2 s apart to the panel's first frame, as the
//             ravelo process logs it (both clocks are the monotonic one)
//   key CPU   CPU time of the ravelo process per key typed into another X11 window while
//             the triggers are armed, less what it takes idle; on X11 the baseline is the
//             same ravelo watching the clipboard alone (copy keys not watched)
// The copies come from another application: an X11 client of this benchmark on X11,
// wl-copy in a Wayland session.
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void spin(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::usleep(500);
    }
}

/// Another X11 application that copies from one window and serves UTF8_STRING.
class X11Source {
public:
    X11Source()
    {
        m_c = xcb_connect(nullptr, nullptr);
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_window = xcb_generate_id(m_c);
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, m_window, screen->root, 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
        xcb_map_window(m_c, m_window);
        m_clipboard = atom("CLIPBOARD");
        m_utf8 = atom("UTF8_STRING");
        m_targets = atom("TARGETS");
    }
    ~X11Source() { xcb_disconnect(m_c); }

    xcb_atom_t atom(const char* name)
    {
        auto* reply = xcb_intern_atom_reply(
            m_c, xcb_intern_atom(m_c, 0, uint16_t(std::strlen(name)), name), nullptr);
        const xcb_atom_t value = reply ? reply->atom : XCB_NONE;
        std::free(reply);
        return value;
    }
    void focus()
    {
        xcb_set_input_focus(m_c, XCB_INPUT_FOCUS_PARENT, m_window, XCB_CURRENT_TIME);
        xcb_flush(m_c);
    }
    void copy(const QByteArray& text)
    {
        m_text = text;
        xcb_set_selection_owner(m_c, m_window, m_clipboard, XCB_CURRENT_TIME);
        xcb_flush(m_c);
    }
    void serve()
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST) {
                const auto* request = reinterpret_cast<xcb_selection_request_event_t*>(event);
                xcb_selection_notify_event_t notify{};
                notify.response_type = XCB_SELECTION_NOTIFY;
                notify.time = request->time;
                notify.requestor = request->requestor;
                notify.selection = request->selection;
                notify.target = request->target;
                notify.property = request->property;
                if (request->target == m_targets) {
                    const xcb_atom_t targets[] = {m_targets, m_utf8};
                    xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, request->requestor,
                                        request->property, XCB_ATOM_ATOM, 32, 2, targets);
                } else if (request->target == m_utf8) {
                    xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, request->requestor,
                                        request->property, m_utf8, 8, uint32_t(m_text.size()),
                                        m_text.constData());
                } else {
                    notify.property = XCB_NONE;
                }
                xcb_send_event(m_c, 0, request->requestor, 0, reinterpret_cast<char*>(&notify));
            }
            std::free(event);
        }
        xcb_flush(m_c);
    }

private:
    xcb_connection_t* m_c = nullptr;
    xcb_window_t m_window = XCB_NONE;
    xcb_atom_t m_clipboard = XCB_NONE, m_utf8 = XCB_NONE, m_targets = XCB_NONE;
    QByteArray m_text;
};

struct Session {
    bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    bool hasX11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    std::unique_ptr<X11Source> source;

    void copy(const QByteArray& text)
    {
        if (wayland) {
            QProcess::execute(QStringLiteral("wl-copy"),
                              {QStringLiteral("--"), QString::fromUtf8(text)});
        } else {
            source->copy(text);
        }
    }
    void wait(int ms)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < ms) {
            if (source) {
                source->serve();
            }
            spin(1);
        }
    }
};

class Ravelo {
public:
    Ravelo(const QString& binary, const QString& home, bool copyKeys)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home + QStringLiteral("/run"));
        env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("ravelo.app.debug=true"));
        env.insert(QStringLiteral("QT_MESSAGE_PATTERN"), QStringLiteral("%{time boot} %{message}"));
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        if (!copyKeys) {
            // A Wayland session as far as Ravelo can tell: the copy keys are not watched.
            env.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        }
        m_process.setProcessEnvironment(env);
        m_process.start(binary, {});
        m_process.waitForStarted();
        QElapsedTimer timer;
        timer.start();
        while (!log().contains("Listening on") && timer.elapsed() < 15000) {
            spin(20);
        }
        spin(1000);
    }
    ~Ravelo()
    {
        m_process.terminate();
        m_process.waitForFinished(5000);
    }
    const QByteArray& log()
    {
        m_log += m_process.readAllStandardError();
        return m_log;
    }
    /// The monotonic time, in ms, of the first "Panel drawn" logged from `offset` on; -1 if none.
    double drawnAfter(qsizetype offset)
    {
        static const QRegularExpression drawn(QStringLiteral("(\\d+\\.\\d+) Panel drawn"));
        const QRegularExpressionMatch match = drawn.match(QString::fromUtf8(log().mid(offset)));
        return match.hasMatch() ? match.captured(1).toDouble() * 1000.0 : -1.0;
    }
    /// Nanoseconds this process has run on any CPU so far.
    qint64 cpuNs()
    {
        qint64 total = 0;
        const QDir tasks(QStringLiteral("/proc/%1/task").arg(m_process.processId()));
        for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            QFile stat(tasks.filePath(task + QStringLiteral("/schedstat")));
            if (stat.open(QIODevice::ReadOnly)) {
                total += stat.readAll().split(' ').value(0).toLongLong();
            }
        }
        return total;
    }

private:
    QProcess m_process;
    QByteArray m_log;
};

QList<double> latencies(Session& session, Ravelo& ravelo, int samples)
{
    QList<double> result;
    for (int i = 0; i < samples; ++i) {
        session.copy("sample " + QByteArray::number(i) + " first copy");
        session.wait(200);
        const qsizetype offset = ravelo.log().size();
        const double start = double(QDeadlineTimer::current().deadlineNSecs()) / 1e6;
        session.copy("sample " + QByteArray::number(i) + " second copy");
        double drawn = -1;
        QElapsedTimer timer;
        timer.start();
        while ((drawn = ravelo.drawnAfter(offset)) < 0 && timer.elapsed() < 5000) {
            session.wait(2);
        }
        if (drawn >= 0) {
            result.append(drawn - start);
        }
        // Esc closes the panel, which has the keyboard, so the next sample shows it anew.
        if (session.hasX11) {
            QProcess::execute(QStringLiteral("xdotool"),
                              {QStringLiteral("key"), QStringLiteral("Escape")});
        }
        session.wait(700);
    }
    return result;
}

QList<double> cpuPerKey(Session& session, Ravelo& ravelo, int samples)
{
    QList<double> result;
    if (!session.hasX11) {
        return result;
    }
    X11Source typingTarget;
    constexpr int keys = 300;
    const QString text = QString(keys / 10, QLatin1Char(' '))
                             .replace(QLatin1Char(' '), QStringLiteral("abcdefghij"));
    for (int i = 0; i < samples; ++i) {
        typingTarget.focus();
        QProcess xdotool;
        const qint64 idleStart = ravelo.cpuNs();
        QElapsedTimer timer;
        timer.start();
        xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("type"), QStringLiteral("--delay"),
                                                  QStringLiteral("4"), text});
        while (xdotool.state() != QProcess::NotRunning) {
            session.wait(5);
        }
        session.wait(100);
        const qint64 typed = ravelo.cpuNs() - idleStart;
        const qint64 elapsed = timer.elapsed();
        const qint64 idleFrom = ravelo.cpuNs();
        session.wait(int(elapsed));
        const qint64 idle = ravelo.cpuNs() - idleFrom;
        result.append(double(typed - idle) / 1000.0 / keys);
    }
    return result;
}

QString join(const QList<double>& values)
{
    if (values.isEmpty()) {
        return QStringLiteral("-");
    }
    QStringList parts;
    for (double value : values) {
        parts << QString::number(value, 'f', 2);
    }
    return parts.join(QLatin1Char(','));
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    const QString binary =
        argc > 1
            ? QString::fromLocal8Bit(argv[1])
            : qEnvironmentVariable("RAVELO_BINARY", QStringLiteral(RAVELO_BINARY_DIR "/ravelo"));
    const bool quick = qEnvironmentVariableIntValue("RAVELO_BENCH_QUICK") == 1;
    Session session;
    if (!session.wayland && !session.hasX11) {
        std::fprintf(stderr, "bench_clipboard_trigger: needs an X11 or Wayland session\n");
        return 2;
    }
    const QString desktop =
        session.wayland ? qEnvironmentVariable("XDG_CURRENT_DESKTOP", QStringLiteral("wayland"))
                        : QStringLiteral("X11");
    QProcess openbox;
    if (!session.wayland) {
        session.source = std::make_unique<X11Source>();
        openbox.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
        spin(800);
    }
    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral("config/Ravelo"));
    QDir(home.path()).mkpath(QStringLiteral("run"));
    QFile::setPermissions(home.filePath(QStringLiteral("run")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QFile prefs(home.filePath(QStringLiteral("config/Ravelo/Ravelo.conf")));
    prefs.open(QIODevice::WriteOnly);
    prefs.write("[General]\nhas_completed_onboarding=true\nuse_double_copy=true\n");
    prefs.close();

    const int latencySamples = quick ? 4 : 10;
    const int cpuSamples = quick ? 2 : 5;
    QList<double> latency;
    QList<double> keyCpu;
    QList<double> keyCpuOwnerOnly;
    {
        Ravelo ravelo(binary, home.path(), true);
        latency = latencies(session, ravelo, latencySamples);
        keyCpu = cpuPerKey(session, ravelo, cpuSamples);
    }
    if (!session.wayland) {
        Ravelo ravelo(binary, home.path(), false);
        keyCpuOwnerOnly = cpuPerKey(session, ravelo, cpuSamples);
    }
    if (openbox.state() != QProcess::NotRunning) {
        openbox.terminate();
        openbox.waitForFinished(3000);
    }
    std::printf("ROW\tdouble copy to the panel's first frame, %s\tms\t%s\t-\t-\tunder 150 ms\n",
                qPrintable(desktop), qPrintable(join(latency)));
    std::printf(
        "ROW\tCPU per key typed elsewhere, triggers armed, %s\tus\t%s\t%s\t%s\tclose to 0\n",
        qPrintable(desktop), qPrintable(join(keyCpu)),
        session.wayland ? "-" : "clipboard owner alone",
        qPrintable(session.wayland ? QStringLiteral("-") : join(keyCpuOwnerOnly)));
    return latency.size() == latencySamples ? 0 : 1;
}
