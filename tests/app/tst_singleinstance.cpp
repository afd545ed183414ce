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
                process.readAllStandardError()};
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

    void startApp()
    {
        m_appLog.clear();
        m_app = std::make_unique<QProcess>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("ravelo.app.debug=true"));
        m_app->setProcessEnvironment(environment);
        m_app->start(binary(), {});
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

    void triggerWithoutInstanceSaysSo()
    {
        const Result result = run({QStringLiteral("trigger")});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("Ravelo is not running."), result.err.constData());
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
