#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "app/SingleInstance.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLocalSocket>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

// One Ravelo per user: the running instance answers later starts and `ravelo trigger`.
// The application runs as the real binary in a process of its own.
class TestSingleInstance : public QObject {
    Q_OBJECT

private:
    RunningRavelo m_app;

private slots:
    void initTestCase()
    {
        QVERIFY(QFileInfo(raveloBinary()).isExecutable());
        QVERIFY(QDir().mkpath(qEnvironmentVariable("XDG_RUNTIME_DIR")));
        QFile::setPermissions(qEnvironmentVariable("XDG_RUNTIME_DIR"), QFileDevice::ReadOwner |
                                                                           QFileDevice::WriteOwner |
                                                                           QFileDevice::ExeOwner);
        QVERIFY(SingleInstance::socketName().startsWith(qEnvironmentVariable("XDG_RUNTIME_DIR")));
        preferencesPastWalkthrough();
    }

    void cleanup() { m_app.stop(); }

    // The instance has ended on its own, normally, and its socket is gone with it.
    bool appEndedCleanly()
    {
        if (!QTest::qWaitFor([this] { return m_app.process()->state() == QProcess::NotRunning; },
                             10000)) {
            return false;
        }
        return m_app.process()->exitStatus() == QProcess::NormalExit &&
               m_app.process()->exitCode() == 0 && !QFile::exists(SingleInstance::socketName());
    }

    // The X window with this exact title, as `xprop -id` takes it; empty while there is none.
    static QString windowNamed(const QString& title)
    {
        return DesktopSession::xdotoolSays({QStringLiteral("search"), QStringLiteral("--name"),
                                            QLatin1Char('^') + title + QLatin1Char('$')})
            .section(QLatin1Char('\n'), 0, 0);
    }

    void commandsWithoutInstance()
    {
        for (const QString& command : {QStringLiteral("trigger"), QStringLiteral("quit")}) {
            const RaveloResult result = runRavelo({command});
            QCOMPARE(result.exitCode, 1);
            QVERIFY2(result.err.contains("Ravelo is not running."), result.err.constData());
            QCOMPARE(runRavelo({command, QStringLiteral("extra")}).exitCode, 2);
        }
    }

    void startWithoutAWorkingApplicationProgramSaysWhy_data()
    {
        QTest::addColumn<QByteArray>("besideIt"); // the text of a ravelo-gui next to ravelo
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("missing") << QByteArray() << QByteArray("is neither beside");
        QTest::newRow("damaged") << QByteArray("not a program") << QByteArray("cannot start");
    }

    void startWithoutAWorkingApplicationProgramSaysWhy()
    {
        QFETCH(QByteArray, besideIt);
        QFETCH(QByteArray, message);
        QTemporaryDir alone;
        QVERIFY(QFile::copy(raveloBinary(), alone.filePath(QStringLiteral("ravelo"))));
        if (!besideIt.isEmpty()) {
            QFile program(alone.filePath(QStringLiteral("ravelo-gui")));
            QVERIFY(program.open(QIODevice::WriteOnly));
            program.write(besideIt);
            QVERIFY(program.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        }
        QProcess process;
        process.start(alone.filePath(QStringLiteral("ravelo")), {});
        QVERIFY(process.waitForFinished(20000));
        QCOMPARE(process.exitCode(), 1);
        QVERIFY(process.readAllStandardError().contains(message));
    }

    // The commands that need no display load none of Qt's graphical libraries, also when they
    // only hand over to the running instance.
    void commandsLoadNoGraphicalLibrary_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("instanceRuns");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("--help") << QStringList{QStringLiteral("--help")} << false << 0;
        QTest::newRow("--version") << QStringList{QStringLiteral("--version")} << false << 0;
        QTest::newRow("unknown command") << QStringList{QStringLiteral("frobnicate")} << false << 2;
        QTest::newRow("trigger, not running")
            << QStringList{QStringLiteral("trigger")} << false << 1;
        QTest::newRow("trigger") << QStringList{QStringLiteral("trigger")} << true << 0;
        QTest::newRow("preferences") << QStringList{QStringLiteral("preferences")} << true << 0;
        QTest::newRow("second start") << QStringList{} << true << 0;
        QTest::newRow("quit") << QStringList{QStringLiteral("quit")} << true << 0;
    }

    void commandsLoadNoGraphicalLibrary()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, instanceRuns);
        QFETCH(int, exitCode);
        if (instanceRuns) {
            QVERIFY2(m_app.start(), m_app.log().constData());
        }
        QTemporaryDir traceFolder;
        const LibraryTrace trace(traceFolder.path());
        const RaveloResult result = runRavelo(arguments, trace.environment());
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(trace.qtLibraries().contains(QStringLiteral("Qt6Core")),
                 qPrintable(trace.qtLibraries().join(u' ')));
        QVERIFY2(trace.graphicalLibraries().isEmpty(),
                 qPrintable(trace.graphicalLibraries().join(u' ')));
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
        QVERIFY2(m_app.start(), m_app.log().constData());
        QVERIFY(QFile::exists(SingleInstance::socketName()));
        QCOMPARE(::kill(pid_t(m_app.process()->processId()), signal), 0);
        QVERIFY2(appEndedCleanly(), m_app.log().constData());
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 1);
    }

    void preferencesStartsRaveloOrHandsOver()
    {
        QVERIFY2(m_app.start({QStringLiteral("preferences")}), m_app.log().constData());
        QVERIFY2(m_app.logged("Preferences requested"), m_app.log().constData());

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
        // The application runs in the process `ravelo` started, which it names as its command
        // (the autostart entry starts that).
        QFile commandLine(QStringLiteral("/proc/%1/cmdline").arg(m_app.process()->processId()));
        QVERIFY(commandLine.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromLocal8Bit(commandLine.readAll().split('\0').first()),
                 QFileInfo(raveloBinary()).canonicalFilePath());

        // Later starts, with or without "preferences", hand over to it.
        for (const QStringList& arguments :
             {QStringList{QStringLiteral("preferences")}, QStringList{}}) {
            m_app.clearLog();
            QCOMPARE(runRavelo(arguments).exitCode, 0);
            QVERIFY2(m_app.logged("Preferences requested"), m_app.log().constData());
            QVERIFY(m_app.process()->state() == QProcess::Running);
        }
    }

    void qtOptionsAreAccepted()
    {
        const RaveloResult unknown = runRavelo({QStringLiteral("--no-such-option")});
        QCOMPARE(unknown.exitCode, 2);
        QVERIFY2(unknown.err.contains("unknown option '--no-such-option'"),
                 unknown.err.constData());
        QVERIFY(!QFile::exists(SingleInstance::socketName()));

        QVERIFY2(m_app.start({QStringLiteral("-platform"), QStringLiteral("xcb"),
                              QStringLiteral("-style"), QStringLiteral("Fusion")}),
                 m_app.log().constData());
        const RaveloResult quit = runRavelo({QStringLiteral("quit")});
        QCOMPARE(quit.exitCode, 0);
        QCOMPARE(quit.err, QByteArray());
        QVERIFY2(appEndedCleanly(), m_app.log().constData());
        QCOMPARE(runRavelo({QStringLiteral("quit")}).exitCode, 1);
    }

    void triggerReachesTheRunningInstance()
    {
        QVERIFY2(m_app.start(), m_app.log().constData());
        QGuiApplication::clipboard()->setText(QStringLiteral("twelve chars"));
        const RaveloResult result = runRavelo({QStringLiteral("trigger")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.err, QByteArray());
        // The instance read this process's clipboard and asked for the panel.
        QVERIFY2(m_app.logged("Panel requested for 12 characters"), m_app.log().constData());

        QGuiApplication::clipboard()->clear();
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
        QVERIFY2(m_app.logged("the clipboard holds no text"), m_app.log().constData());
    }

    void triggerCarriesTheActivationToken_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("token");
        QTest::addColumn<bool>("carried");
        QTest::newRow("startup id")
            << QByteArray("DESKTOP_STARTUP_ID") << QByteArray("kwin-ravelo-42_TIME1234") << true;
        QTest::newRow("Wayland token")
            << QByteArray("XDG_ACTIVATION_TOKEN") << QByteArray("5f1c2a9e0b7d") << true;
        QTest::newRow("a token with a space")
            << QByteArray("XDG_ACTIVATION_TOKEN") << QByteArray("two words") << false;
        QTest::newRow("a token far too long")
            << QByteArray("DESKTOP_STARTUP_ID") << QByteArray(300, 'x') << false;
    }

    // Started by the desktop's shortcut, `ravelo trigger` hands the desktop's leave to take
    // the focus to the instance; what is not a token is dropped, and the trigger still works.
    void triggerCarriesTheActivationToken()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, token);
        QFETCH(bool, carried);
        QVERIFY2(m_app.start(), m_app.log().constData());
        QGuiApplication::clipboard()->setText(QStringLiteral("token"));
        qputenv(variable.constData(), token);
        const RaveloResult result = runRavelo({QStringLiteral("trigger")});
        qunsetenv(variable.constData());
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(m_app.logged("Panel requested for 5 characters"), m_app.log().constData());
        QCOMPARE(m_app.log().contains("with an activation token"), carried);
    }

    void aSocketLeftBehindIsReplaced()
    {
        QVERIFY2(m_app.start(), m_app.log().constData());
        m_app.process()->kill();
        m_app.process()->waitForFinished();
        QVERIFY(QFile::exists(SingleInstance::socketName()));

        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 1);
        QVERIFY2(m_app.start(), m_app.log().constData());
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
    }

    void strangersAreTurnedAway()
    {
        QVERIFY2(m_app.start(), m_app.log().constData());
        QLocalSocket socket;
        socket.connectToServer(SingleInstance::socketName());
        QVERIFY(socket.waitForConnected(3000));
        socket.write(QByteArray(200, 'x'));
        QTRY_COMPARE(socket.state(), QLocalSocket::UnconnectedState);
        // The instance is still there and answers.
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
    }
};

QTEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
