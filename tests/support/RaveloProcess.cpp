#include "RaveloProcess.h"

#include "model/PreferenceStore.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

QString raveloBinary()
{
    return qEnvironmentVariable("RAVELO_BINARY");
}

QString preferencesPastWalkthrough()
{
    const QString path =
        qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Ravelo/Ravelo.conf");
    QFile::remove(path);
    PreferenceStore preferences(path);
    preferences.setBoolean(Preferences::hasCompletedOnboarding, true);
    preferences.setBoolean(Preferences::useDoubleCopy, false);
    return path;
}

QProcessEnvironment environmentWithLanguage(const QString& lang)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES"}) {
        environment.remove(QLatin1String(name));
    }
    environment.insert(QStringLiteral("LANG"), lang);
    return environment;
}

RaveloResult runRavelo(const QStringList& arguments, const QProcessEnvironment& environment,
                       const QByteArray& input)
{
    QProcess process;
    if (!environment.isEmpty()) {
        process.setProcessEnvironment(environment);
    }
    process.start(raveloBinary(), arguments);
    if (!input.isNull()) {
        process.write(input);
        process.closeWriteChannel();
    }
    if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; }, 20000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

LibraryTrace::LibraryTrace(const QString& folder)
    : m_folder(folder)
{}

QProcessEnvironment LibraryTrace::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_DEBUG"), QStringLiteral("libs"));
    // One file per process: <folder>/ld.<pid>.
    environment.insert(QStringLiteral("LD_DEBUG_OUTPUT"), m_folder + QStringLiteral("/ld"));
    return environment;
}

QStringList LibraryTrace::qtLibraries() const
{
    static const QRegularExpression qtLibrary(QStringLiteral("/lib(Qt6\\w+)\\.so"));
    QStringList libraries;
    const QDir folder(m_folder);
    for (const QString& name : folder.entryList({QStringLiteral("ld.*")}, QDir::Files)) {
        QFile file(folder.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QString report = QString::fromLocal8Bit(file.readAll());
        for (auto match = qtLibrary.globalMatch(report); match.hasNext();) {
            const QString library = match.next().captured(1);
            if (!libraries.contains(library)) {
                libraries.append(library);
            }
        }
    }
    return libraries;
}

QStringList LibraryTrace::graphicalLibraries() const
{
    static const QRegularExpression graphical(
        QStringLiteral("^Qt6(Gui|Qml.*|Quick.*|Widgets|OpenGL.*|Svg.*|XcbQpa|WaylandClient)$"));
    return qtLibraries().filter(graphical);
}

bool RunningRavelo::start(const QStringList& arguments, const QProcessEnvironment& environment)
{
    stop();
    m_log.clear();
    m_process = std::make_unique<QProcess>();
    QProcessEnvironment full = QProcessEnvironment::systemEnvironment();
    full.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("ravelo.app.debug=true"));
    full.insert(environment);
    m_process->setProcessEnvironment(full);
    m_process->start(raveloBinary(), arguments);
    return m_process->waitForStarted() && logged("Listening on");
}

const QByteArray& RunningRavelo::readLog()
{
    if (m_process) {
        m_log += m_process->readAllStandardError();
    }
    return m_log;
}

bool RunningRavelo::logged(const char* text)
{
    return m_process && QTest::qWaitFor([&] { return readLog().contains(text); }, 10000);
}

void RunningRavelo::stop()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(5000)) {
            m_process->kill();
            m_process->waitForFinished();
        }
    }
    m_process.reset();
}
