#include "app/SingleInstance.h"
#include "model/PreferenceStore.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLocalSocket>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <csignal>

namespace {

QString binary()
{
    return qEnvironmentVariable("RAVELO_BINARY");
}

} // namespace

// One Ravelo per user: the running instance answers later starts and `ravelo trigger`.
// The application runs as the real binary in a process of its own.
class TestSingleInstance : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QProcess> m_app;
    QByteArray m_appLog;

    struct Result {
        int exitCode = -1;
        QByteArray err;
        QByteArray out;
    };

    // Runs a short command while this process's event loop keeps turning: it owns the
    // clipboard that the running instance reads.
    Result run(const QStringList& arguments)
    {
        QProcess process;
        process.start(binary(), arguments);
        if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; },
                             15000)) {
            process.kill();
            process.waitForFinished();
            return {};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                process.readAllStandardError(), process.readAllStandardOutput()};
    }

    // Everything the running instance has logged so far contains `text`.
    bool appLogged(const char* text)
    {
        return QTest::qWaitFor(
            [&] {
                m_appLog += m_app->readAllStandardError();
                return m_appLog.contains(text);
            },
            10000);
    }

    void startApp(const QStringList& arguments = {})
    {
        m_appLog.clear();
        m_app = std::make_unique<QProcess>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("ravelo.app.debug=true"));
        m_app->setProcessEnvironment(environment);
        m_app->start(binary(), arguments);
        QVERIFY(m_app->waitForStarted());
        QVERIFY2(appLogged("Listening on"), m_appLog.constData());
    }

    void stopApp()
    {
        if (m_app && m_app->state() != QProcess::NotRunning) {
            m_app->terminate();
            if (!m_app->waitForFinished(5000)) {
                m_app->kill();
                m_app->waitForFinished();
            }
        }
        m_app.reset();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(QFileInfo(binary()).isExecutable());
        QVERIFY(QDir().mkpath(qEnvironmentVariable("XDG_RUNTIME_DIR")));
        QFile::setPermissions(qEnvironmentVariable("XDG_RUNTIME_DIR"), QFileDevice::ReadOwner |
                                                                           QFileDevice::WriteOwner |
                                                                           QFileDevice::ExeOwner);
        QVERIFY(SingleInstance::socketName().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR")));
        // Past the walkthrough, double copy off: the instance only waits for requests.
        const QString path =
            qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Ravelo/Ravelo.conf");
        QFile::remove(path);
        PreferenceStore preferences(path);
        preferences.setBoolean(Preferences::hasCompletedOnboarding, true);
        preferences.setBoolean(Preferences::useDoubleCopy, false);
    }

    void cleanup() { stopApp(); }

    // The instance has ended on its own, normally, and its socket is gone with it.
    bool appEndedCleanly()
    {
        if (!QTest::qWaitFor([this] { return m_app->state() == QProcess::NotRunning; }, 10000)) {
            return false;
        }
        return m_app->exitStatus() == QProcess::NormalExit && m_app->exitCode() == 0 &&
               !QFile::exists(SingleInstance::socketName());
    }

    // The X window with this exact title, as `xprop -id` takes it; empty while there is none.
    static QString windowNamed(const QString& title)
    {
        QProcess search;
        search.start(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--name"),
                                                 QLatin1Char('^') + title + QLatin1Char('$')});
        search.waitForFinished();
        return QString::fromLatin1(search.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0);
    }

    void commandsWithoutInstanceSaySo_data()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("trigger") << QStringLiteral("trigger");
        QTest::newRow("quit") << QStringLiteral("quit");
    }

    void commandsWithoutInstanceSaySo()
    {
        QFETCH(QString, command);
        const Result result = run({command});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("Ravelo is not running."), result.err.constData());
        QCOMPARE(run({command, QStringLiteral("extra")}).exitCode, 2);
    }

    void versionAndHelp()
    {
        const Result version = run({QStringLiteral("--version")});
        QCOMPARE(version.exitCode, 0);
        QCOMPARE(version.out, QByteArray("Ravelo " RAVELO_VERSION "\n"));

        const Result help = run({QStringLiteral("--help")});
        QCOMPARE(help.exitCode, 0);
        for (const char* line :
             {"  ravelo preferences ", "  ravelo quit ", "  ravelo --version "}) {
            QVERIFY2(help.out.contains(line), line);
        }
    }

    void quitEndsTheRunningInstance()
    {
        startApp();
        const Result result = run({QStringLiteral("quit")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.err, QByteArray());
        QVERIFY2(appEndedCleanly(), m_appLog.constData());
        QCOMPARE(run({QStringLiteral("quit")}).exitCode, 1);
    }

    void terminationSignalsQuitCleanly_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGINT") << int(SIGINT);
    }

    void terminationSignalsQuitCleanly()
    {
        QFETCH(int, signal);
        startApp();
        QVERIFY(QFile::exists(SingleInstance::socketName()));
        QCOMPARE(::kill(pid_t(m_app->processId()), signal), 0);
        QVERIFY2(appEndedCleanly(), m_appLog.constData());
        QCOMPARE(run({QStringLiteral("trigger")}).exitCode, 1);
    }

    void preferencesStartsRaveloOrHandsOver()
    {
        startApp({QStringLiteral("preferences")});
        QVERIFY2(appLogged("Preferences requested"), m_appLog.constData());

        // The window carries Ravelo's icon and the name of its desktop entry.
        QString window;
        QVERIFY(QTest::qWaitFor(
            [&] { return !(window = windowNamed(QStringLiteral("Ravelo Preferences"))).isEmpty(); },
            10000));
        QProcess xprop;
        xprop.start(QStringLiteral("xprop"),
                    {QStringLiteral("-id"), window, QStringLiteral("WM_CLASS"),
                     QStringLiteral("_NET_WM_ICON")});
        QVERIFY(xprop.waitForFinished());
        const QByteArray properties = xprop.readAllStandardOutput();
        QVERIFY2(properties.contains("WM_CLASS(STRING) = \"ravelo\", \"Ravelo\""),
                 properties.constData());
        QVERIFY2(properties.contains("_NET_WM_ICON(CARDINAL) = "), properties.constData());

        m_appLog.clear();
        QCOMPARE(run({QStringLiteral("preferences")}).exitCode, 0);
        QVERIFY2(appLogged("Preferences requested"), m_appLog.constData());
        QVERIFY(m_app->state() == QProcess::Running);
    }

    void qtOptionsAreAccepted()
    {
        const Result unknown = run({QStringLiteral("--no-such-option")});
        QCOMPARE(unknown.exitCode, 2);
        QVERIFY2(unknown.err.contains("unknown option '--no-such-option'"),
                 unknown.err.constData());
        QVERIFY(!QFile::exists(SingleInstance::socketName()));

        startApp({QStringLiteral("-platform"), QStringLiteral("xcb"), QStringLiteral("-style"),
                  QStringLiteral("Fusion")});
        QCOMPARE(run({QStringLiteral("quit")}).exitCode, 0);
        QVERIFY2(appEndedCleanly(), m_appLog.constData());
    }

    void triggerReachesTheRunningInstance()
    {
        startApp();
        QGuiApplication::clipboard()->setText(QStringLiteral("twelve chars"));
        const Result result = run({QStringLiteral("trigger")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.err, QByteArray());
        // The instance read this process's clipboard and asked for the panel.
        QVERIFY2(appLogged("Panel requested for 12 characters"), m_appLog.constData());

        QGuiApplication::clipboard()->clear();
        QCOMPARE(run({QStringLiteral("trigger")}).exitCode, 0);
        QVERIFY2(appLogged("the clipboard holds no text"), m_appLog.constData());
    }

    void secondStartHandsOver()
    {
        startApp();
        const Result result = run({});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(appLogged("Preferences requested"), m_appLog.constData());
        QVERIFY(m_app->state() == QProcess::Running);
    }

    void aSocketLeftBehindIsReplaced()
    {
        startApp();
        m_app->kill();
        m_app->waitForFinished();
        QVERIFY(QFile::exists(SingleInstance::socketName()));

        QCOMPARE(run({QStringLiteral("trigger")}).exitCode, 1);
        startApp();
        QCOMPARE(run({QStringLiteral("trigger")}).exitCode, 0);
    }

    void strangersAreTurnedAway()
    {
        startApp();
        QLocalSocket socket;
        socket.connectToServer(SingleInstance::socketName());
        QVERIFY(socket.waitForConnected(3000));
        socket.write(QByteArray(200, 'x'));
        QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
        // The instance is still there and answers.
        QCOMPARE(run({QStringLiteral("trigger")}).exitCode, 0);
    }
};

QTEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
