#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

#include <memory>

/// The real ravelo binary, as the build names it in RAVELO_BINARY.
QString raveloBinary();

/// The test's preferences file made anew, past the walkthrough and with double copy off, so
/// that a started instance only waits for requests. Returns its path.
QString preferencesPastWalkthrough();

struct RaveloResult {
    int exitCode = -1; ///< -1 when the command crashed or did not end in time
    QByteArray out;
    QByteArray err;
};

/// Runs a short ravelo command to its end while this process's event loop keeps turning: the
/// test may own the clipboard that a running instance reads meanwhile. `environment`, when
/// given, replaces the test's own; `input`, when given, is its standard input.
RaveloResult runRavelo(const QStringList& arguments,
                       const QProcessEnvironment& environment = QProcessEnvironment(),
                       const QByteArray& input = QByteArray());

/// The test's environment with the user's language set to `lang` (LANGUAGE, LC_ALL and
/// LC_MESSAGES removed, since they take precedence).
QProcessEnvironment environmentWithLanguage(const QString& lang);

/// The Qt libraries that processes started with `environment()` mapped, as their
/// dynamic loader wrote them into `folder`: "Qt6Core", "Qt6Network", …
class LibraryTrace {
public:
    explicit LibraryTrace(const QString& folder);
    /// The test's environment with the loader's report turned on.
    QProcessEnvironment environment() const;
    QStringList qtLibraries() const;
    /// Those of them that belong to the graphical stack (Gui, Qml, Quick, Widgets, …).
    QStringList graphicalLibraries() const;

private:
    QString m_folder;
};

/// A running Ravelo instance with its application log on; ended when this goes.
class RunningRavelo {
public:
    ~RunningRavelo() { stop(); }

    /// Starts it and waits until it listens for later starts. `environment` adds to the
    /// test's own.
    bool start(const QStringList& arguments = {},
               const QProcessEnvironment& environment = QProcessEnvironment());
    /// Whether everything it has logged so far contains `text`, waiting for it a while.
    bool logged(const char* text);
    /// Forgets what it logged so far, so that `logged` looks at what comes next.
    void clearLog() { m_log.clear(); }
    const QByteArray& log() const { return m_log; }
    /// Everything it has logged so far, with what came since the last look.
    const QByteArray& readLog();
    QProcess* process() const { return m_process.get(); }
    void stop();

private:
    std::unique_ptr<QProcess> m_process;
    QByteArray m_log;
};
