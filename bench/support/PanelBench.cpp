#include "PanelBench.h"

#include "platform/QuickRenderer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QLocalServer>
#include <QLocalSocket>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QThread>

#include <xcb/xtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace bench {
namespace {

constexpr uint32_t cardBackground = 0x3e3f40;
constexpr int settleQuietMs = 500;
constexpr int showTimeoutMs = 20000;
// Xvfb's keycode for Escape with its default keymap.
constexpr uint8_t escapeKeycode = 9;

QString socketPath(const QString& runtimeDir)
{
    return QDir(runtimeDir).filePath(QStringLiteral("ravelo.socket"));
}

bool windowManagerRuns(xcb_connection_t* c, const xcb_screen_t* screen)
{
    const QByteArray name = "_NET_SUPPORTING_WM_CHECK";
    auto* atom = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 1, uint16_t(name.size()), name.constData()), nullptr);
    if (!atom || atom->atom == XCB_ATOM_NONE) {
        std::free(atom);
        return false;
    }
    auto* reply = xcb_get_property_reply(
        c, xcb_get_property(c, 0, screen->root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
    const bool runs = reply && xcb_get_property_value_length(reply) == 4;
    std::free(reply);
    std::free(atom);
    return runs;
}

} // namespace

int sampleCount(int normal, int quick)
{
    return qEnvironmentVariableIntValue("RAVELO_BENCH_QUICK") == 1 ? quick : normal;
}

Desktop::Desktop()
{
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection)) {
        std::fprintf(stderr, "no X server: run under tests/support/with-xvfb\n");
        std::exit(2);
    }
    m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    if (!windowManagerRuns(m_connection, m_screen)) {
        m_windowManager.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
        QElapsedTimer timer;
        timer.start();
        while (!windowManagerRuns(m_connection, m_screen) && timer.elapsed() < 10000) {
            QThread::msleep(50);
        }
    }
    if (qEnvironmentVariableIntValue("RAVELO_BENCH_COMPOSITOR") == 1) {
        m_compositor.start(QStringLiteral("xcompmgr"), {});
        QThread::msleep(500);
    }
}

Desktop::~Desktop()
{
    if (m_compositor.state() != QProcess::NotRunning) {
        m_compositor.terminate();
        m_compositor.waitForFinished();
    }
    if (m_windowManager.state() != QProcess::NotRunning) {
        m_windowManager.terminate();
        m_windowManager.waitForFinished();
    }
    xcb_disconnect(m_connection);
}

std::optional<std::pair<int, int>> Desktop::cardRows() const
{
    auto* image =
        xcb_get_image_reply(m_connection,
                            xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_screen->root,
                                          int16_t(m_screen->width_in_pixels / 2), 0, 1,
                                          m_screen->height_in_pixels, ~0u),
                            nullptr);
    std::optional<std::pair<int, int>> rows;
    if (image) {
        const auto* pixels = reinterpret_cast<const uint32_t*>(xcb_get_image_data(image));
        const int n = xcb_get_image_data_length(image) / 4;
        for (int i = 0; i < n; ++i) {
            if ((pixels[i] & 0xffffff) == cardBackground) {
                rows = rows ? std::pair(rows->first, i) : std::pair(i, i);
            }
        }
    }
    std::free(image);
    return rows;
}

void Desktop::pressEscape() const
{
    for (uint8_t type : {XCB_KEY_PRESS, XCB_KEY_RELEASE}) {
        xcb_test_fake_input(m_connection, type, escapeKeycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    }
    xcb_flush(m_connection);
}

Instance::Instance(const QString& program)
    : m_program(program)
{
    QDir home(m_home.path());
    home.mkpath(QStringLiteral("config/Ravelo"));
    home.mkpath(QStringLiteral("run"));
    QFile::setPermissions(home.filePath(QStringLiteral("run")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QFile prefs(home.filePath(QStringLiteral("config/Ravelo/Ravelo.conf")));
    if (prefs.open(QIODevice::WriteOnly)) {
        prefs.write("[General]\nhas_completed_onboarding=true\nuse_double_copy=false\n");
    }
}

Instance::~Instance()
{
    quit();
}

bool Instance::start()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_home.filePath(QStringLiteral("run")));
    m_process.setProcessEnvironment(env);
    if (qEnvironmentVariableIsEmpty("RAVELO_BENCH_VERBOSE")) {
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.setStandardErrorFile(QProcess::nullDevice());
    } else {
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
    }
    if (m_program.isEmpty()) {
        m_process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--bare-window")});
    } else {
        m_process.start(m_program, {});
    }
    if (!m_process.waitForStarted()) {
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    const QString path = socketPath(m_home.filePath(QStringLiteral("run")));
    while (timer.elapsed() < showTimeoutMs) {
        QLocalSocket probe;
        probe.connectToServer(path);
        if (probe.waitForConnected(100)) {
            break;
        }
        QThread::msleep(20);
    }
    // Whatever the process does right after start-up (tray, watchers) is over by then.
    QThread::msleep(1000);
    return m_process.state() == QProcess::Running;
}

bool Instance::send(QByteArrayView line)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath(m_home.filePath(QStringLiteral("run"))));
    if (!socket.waitForConnected(5000)) {
        return false;
    }
    socket.write(line.data(), line.size());
    return socket.waitForBytesWritten(5000);
}

Appearance Instance::trigger(const Desktop& desktop)
{
    QElapsedTimer timer;
    timer.start();
    Appearance result;
    if (!send("trigger\n")) {
        return result;
    }
    std::optional<std::pair<int, int>> rows;
    while (timer.elapsed() < showTimeoutMs) {
        const qint64 ns = timer.nsecsElapsed();
        rows = desktop.cardRows();
        if (rows) {
            if (!qEnvironmentVariableIsEmpty("RAVELO_BENCH_VERBOSE")) {
                std::fprintf(stderr, "  %.1f ms: card rows %d-%d\n", ns / 1e6, rows->first,
                             rows->second);
            }
            result.firstFrameMs = result.settledMs = ns / 1e6;
            break;
        }
        QThread::usleep(200);
    }
    if (!rows) {
        return result;
    }
    QElapsedTimer quiet;
    quiet.start();
    while (quiet.elapsed() < settleQuietMs) {
        const qint64 ns = timer.nsecsElapsed();
        const auto now = desktop.cardRows();
        if (now != rows) {
            if (!qEnvironmentVariableIsEmpty("RAVELO_BENCH_VERBOSE")) {
                std::fprintf(stderr, "  %.1f ms: card rows %d-%d\n", ns / 1e6,
                             now ? now->first : -1, now ? now->second : -1);
            }
            rows = now;
            result.settledMs = ns / 1e6;
            quiet.restart();
        }
        QThread::usleep(200);
    }
    return result;
}

void Instance::close(const Desktop& desktop)
{
    desktop.pressEscape();
    QElapsedTimer timer;
    timer.start();
    while (desktop.cardRows() && timer.elapsed() < showTimeoutMs) {
        QThread::msleep(5);
    }
}

double Instance::residentMb() const
{
    QFile status(QStringLiteral("/proc/%1/status").arg(m_process.processId()));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024;
        }
    }
    return -1;
}

void Instance::quit()
{
    if (m_process.state() == QProcess::NotRunning) {
        return;
    }
    send("quit\n");
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

bool isBareWindowMode(int argc, char** argv)
{
    return argc > 1 && QByteArrayView(argv[1]) == "--bare-window";
}

int runBareWindow(int argc, char** argv)
{
    chooseQuickRenderer();
    QGuiApplication app(argc, argv);
    QQmlEngine engine;
    std::unique_ptr<QQuickWindow> window;
    QLocalServer server;
    QObject::connect(&server, &QLocalServer::newConnection, &app, [&] {
        QLocalSocket* socket = server.nextPendingConnection();
        QObject::connect(socket, &QLocalSocket::readyRead, socket, [&, socket] {
            const QByteArray line = socket->readLine();
            if (line == "quit\n") {
                app.quit();
            } else if (line == "trigger\n") {
                if (!window) {
                    window = std::make_unique<QQuickWindow>();
                    window->setFlags(Qt::Tool | Qt::FramelessWindowHint);
                    QQmlComponent component(&engine);
                    component.setData("import QtQuick\n"
                                      "Rectangle { width: 544; height: 300; color: '#3e3f40'\n"
                                      "  Text { x: 32; y: 28; width: 480; wrapMode: Text.Wrap;"
                                      " font.pixelSize: 20; color: 'white';"
                                      " text: 'A bare Qt Quick window' } }",
                                      QUrl());
                    auto* item = qobject_cast<QQuickItem*>(component.create());
                    item->setParentItem(window->contentItem());
                    window->resize(544, 300);
                }
                const QRect area = window->screen()->availableGeometry();
                window->setPosition(area.center() - QPoint(272, 250));
                window->show();
                window->raise();
                window->requestActivate();
            }
            socket->write("ok\n");
            socket->disconnectFromServer();
        });
    });
    server.listen(socketPath(qEnvironmentVariable("XDG_RUNTIME_DIR")));
    return app.exec();
}

QString raveloProgram()
{
    const QString fromEnv = qEnvironmentVariable("RAVELO_BINARY");
    if (!fromEnv.isEmpty()) {
        return fromEnv;
    }
    return QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("../ravelo"));
}

QString rendererName()
{
    return quickRendererName();
}

void printRow(const QString& measure, const QString& unit, const std::vector<double>& samples,
              const QString& baseline, const std::vector<double>& baselineSamples,
              const QString& goal)
{
    const auto join = [](const std::vector<double>& values) {
        QStringList parts;
        for (double value : values) {
            parts << QString::number(value, 'f', 1);
        }
        return parts.isEmpty() ? QStringLiteral("-") : parts.join(u',');
    };
    std::printf("ROW\t%s\t%s\t%s\t%s\t%s\t%s\n", qPrintable(measure), qPrintable(unit),
                qPrintable(join(samples)),
                qPrintable(baseline.isEmpty() ? QStringLiteral("-") : baseline),
                qPrintable(join(baselineSamples)), qPrintable(goal));
    std::fflush(stdout);
}

void putTextOnClipboard()
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard")});
    xclip.write("The quick panel shows the copied text above its prompts. This paragraph is long "
                "enough to wrap over a few lines, as a sentence or two copied from a web page or "
                "a mail usually is, so that the clipboard box has to grow to fit it.");
    xclip.closeWriteChannel();
    xclip.waitForFinished();
}

} // namespace bench
