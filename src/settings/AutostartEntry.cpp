#include "settings/AutostartEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

constexpr auto entryFileName = "ravelo.desktop"_L1;

// Characters after which an Exec argument must be quoted, and those that must be escaped
// with a backslash inside the quotes.
constexpr auto reservedCharacters = " \t\n\"'\\><~|&;$*?#()`"_L1;
constexpr auto escapedInQuotes = "\"`$\\"_L1;

QString quoteArgument(const QString& argument)
{
    QString quoted = argument;
    bool needsQuotes = false;
    for (const QChar c : argument) {
        if (reservedCharacters.contains(c)) {
            needsQuotes = true;
            break;
        }
    }
    if (needsQuotes) {
        quoted.clear();
        for (const QChar c : argument) {
            if (escapedInQuotes.contains(c)) {
                quoted += u'\\';
            }
            quoted += c;
        }
        quoted = u'"' + quoted + u'"';
    }
    // A literal percent sign is doubled (single ones start field codes), and the value as
    // a whole is a string in which a backslash is escaped once more.
    quoted.replace(u'%', "%%"_L1);
    quoted.replace(u'\\', "\\\\"_L1);
    return quoted;
}

QString canonical(const QString& path)
{
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? QFileInfo(path).absoluteFilePath() : resolved;
}

/// The command that started Ravelo: `ravelo` starts the application program with its own
/// path as argv[0].
QString commandPath()
{
    const QString first = QCoreApplication::arguments().value(0);
    if (QDir::isAbsolutePath(first) && QFileInfo(first).isExecutable()) {
        return first;
    }
    return QCoreApplication::applicationFilePath();
}

} // namespace

AutostartEntry::AutostartEntry(QObject* parent)
    : QObject(parent)
    , m_path(entryPath())
    , m_programPath(commandPath())
{
    refresh();
}

QString AutostartEntry::entryPath()
{
    // XDG_CONFIG_HOME counts only when it is an absolute path.
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configHome.isEmpty() || QDir::isRelativePath(configHome)) {
        configHome = QDir::homePath() + "/.config"_L1;
    }
    return QDir::cleanPath(configHome + "/autostart/"_L1 + entryFileName);
}

QString AutostartEntry::execLine(const QString& programPath)
{
    const QString onPath = QStandardPaths::findExecutable(u"ravelo"_s);
    if (!onPath.isEmpty() && canonical(onPath) == canonical(programPath)) {
        return u"ravelo"_s;
    }
    return quoteArgument(QFileInfo(programPath).absoluteFilePath());
}

bool AutostartEntry::entryIsActive(const QByteArray& contents)
{
    bool inMainGroup = false;
    for (const QByteArray& rawLine : contents.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) {
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (equals < 0) {
            continue;
        }
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1).trimmed();
        if ((key == "Hidden" && value == "true") ||
            (key == "X-GNOME-Autostart-enabled" && value == "false")) {
            return false;
        }
    }
    return true;
}

void AutostartEntry::refresh()
{
    const QFileInfo info(m_path);
    bool active = false;
    if (info.isFile()) {
        QFile file(m_path);
        // An entry that cannot be read still starts nothing we could show as ours, but it
        // is there: count it as present so that unticking the box can remove it.
        active = !file.open(QIODevice::ReadOnly) || entryIsActive(file.read(64 * 1024));
    }
    setError(QString());
    setEnabledState(active);
}

void AutostartEntry::setEnabled(bool enabled)
{
    if (enabled == m_enabled) {
        return;
    }
    const bool written = enabled ? writeEntry() : removeEntry();
    if (!written) {
        // Tell a bound control that the state did not change after all.
        emit enabledChanged();
        return;
    }
    setError(QString());
    setEnabledState(enabled);
}

bool AutostartEntry::writeEntry()
{
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QDir().mkpath(folder)) {
        setError(tr("Could not create the folder %1.").arg(folder));
        return false;
    }
    const QString contents = "[Desktop Entry]\n"
                             "Type=Application\n"
                             "Name=Ravelo\n"
                             "Comment=Language-model actions on copied text\n"
                             "Exec="_L1 +
                             execLine(m_programPath) +
                             "\n"
                             "Icon=ravelo\n"
                             "Terminal=false\n"
                             "X-GNOME-Autostart-enabled=true\n"_L1;
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents.toUtf8()) < 0 || !file.commit()) {
        setError(tr("Could not write %1: %2").arg(m_path, file.errorString()));
        return false;
    }
    return true;
}

bool AutostartEntry::removeEntry()
{
    QFile file(m_path);
    if (!file.exists()) {
        return true;
    }
    if (!file.remove()) {
        setError(tr("Could not remove %1: %2").arg(m_path, file.errorString()));
        return false;
    }
    return true;
}

void AutostartEntry::setError(const QString& error)
{
    if (error == m_error) {
        return;
    }
    m_error = error;
    emit errorChanged();
}

void AutostartEntry::setEnabledState(bool enabled)
{
    if (enabled == m_enabled) {
        return;
    }
    m_enabled = enabled;
    emit enabledChanged();
}
