#include "platform/gnome/GnomeCustomShortcut.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"

#include <xkbcommon/xkbcommon.h>

using namespace Qt::StringLiterals;

namespace {

// gsettings answers at once; a hung one (a settings daemon that does not answer) is given up.
constexpr int gsettingsTimeoutMs = 10000;

QString entry()
{
    return QString::fromLatin1(GnomeCustomShortcut::entrySchema) + u':' +
           QString::fromLatin1(GnomeCustomShortcut::entryPath);
}

QStringList getList()
{
    return {u"get"_s, QString::fromLatin1(GnomeCustomShortcut::listSchema),
            QString::fromLatin1(GnomeCustomShortcut::listKey)};
}

QStringList setList(const QStringList& paths)
{
    return {u"set"_s, QString::fromLatin1(GnomeCustomShortcut::listSchema),
            QString::fromLatin1(GnomeCustomShortcut::listKey),
            GnomeCustomShortcut::variantStringList(paths)};
}

} // namespace

GnomeCustomShortcut::GnomeCustomShortcut(QObject* parent)
    : DesktopShortcut(parent)
{
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(gsettingsTimeoutMs);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        if (m_process) {
            m_process->disconnect(this);
            m_process->kill();
            m_process->deleteLater();
        }
        fail(tr("GNOME's settings did not answer."));
    });
}

GnomeCustomShortcut::~GnomeCustomShortcut()
{
    if (m_process) {
        m_process->disconnect(this);
        // A write under way is let finish: the list of shortcuts is never left half done.
        m_process->waitForFinished(gsettingsTimeoutMs);
    }
}

QString GnomeCustomShortcut::accelerator(quint32 keyCode, quint32 modifiers)
{
    const std::optional<quint32> keysym = KeyMap::keysymForKeyCode(keyCode);
    char name[64] = {};
    if (!keysym || xkb_keysym_get_name(*keysym, name, sizeof name) <= 0) {
        return QString();
    }
    QString text;
    if (modifiers & KeyMap::commandMask) {
        text += "<Primary>"_L1;
    }
    if (modifiers & KeyMap::shiftMask) {
        text += "<Shift>"_L1;
    }
    if (modifiers & KeyMap::optionMask) {
        text += "<Alt>"_L1;
    }
    if (modifiers & KeyMap::controlMask) {
        text += "<Super>"_L1;
    }
    return text + QString::fromLatin1(name);
}

QString GnomeCustomShortcut::commandLine(const QStringList& command)
{
    QStringList words;
    for (QString word : command) {
        const bool plain = !word.isEmpty() && std::all_of(word.cbegin(), word.cend(), [](QChar c) {
            return c.isLetterOrNumber() || QStringView(u"-_./=+:,@").contains(c);
        });
        if (!plain) {
            word.replace(u'\'', "'\\''"_L1);
            word = u'\'' + word + u'\'';
        }
        words.append(word);
    }
    return words.join(u' ');
}

QString GnomeCustomShortcut::variantString(const QString& text)
{
    QString escaped = text;
    escaped.replace(u'\\', "\\\\"_L1);
    escaped.replace(u'\'', "\\'"_L1);
    return u'\'' + escaped + u'\'';
}

QString GnomeCustomShortcut::variantStringList(const QStringList& list)
{
    if (list.isEmpty()) {
        return u"@as []"_s;
    }
    QStringList quoted;
    for (const QString& item : list) {
        quoted.append(variantString(item));
    }
    return u'[' + quoted.join(", "_L1) + u']';
}

QStringList GnomeCustomShortcut::parseVariantStrings(const QString& text)
{
    QStringList strings;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar quote = text.at(i);
        if (quote != u'\'' && quote != u'"') {
            continue;
        }
        QString value;
        for (++i; i < text.size() && text.at(i) != quote; ++i) {
            if (text.at(i) == u'\\' && i + 1 < text.size()) {
                ++i;
            }
            value.append(text.at(i));
        }
        strings.append(value);
    }
    return strings;
}

bool GnomeCustomShortcut::hasKeys(quint32 keyCode, quint32 modifiers) const
{
    const QString wanted = accelerator(keyCode, modifiers);
    return m_installed && !wanted.isEmpty() && m_binding == wanted;
}

bool GnomeCustomShortcut::runs(const QStringList& command) const
{
    return m_installed && m_commandLine == commandLine(command);
}

bool GnomeCustomShortcut::begin()
{
    if (m_busy) {
        return false;
    }
    m_busy = true;
    m_error.clear();
    emit changed();
    return true;
}

void GnomeCustomShortcut::refresh()
{
    if (!begin()) {
        return;
    }
    run(getList(), [this](const QString& output) {
        if (!parseVariantStrings(output).contains(QLatin1String(entryPath))) {
            finish(false);
            return;
        }
        run({u"get"_s, entry(), u"binding"_s}, [this](const QString& binding) {
            run({u"get"_s, entry(), u"command"_s}, [this, binding](const QString& command) {
                finish(true, parseVariantStrings(binding).value(0),
                       parseVariantStrings(command).value(0));
            });
        });
    });
}

void GnomeCustomShortcut::install(quint32 keyCode, quint32 modifiers, const QStringList& command)
{
    const QString binding = accelerator(keyCode, modifiers);
    if (binding.isEmpty() || command.isEmpty() || !begin()) {
        return;
    }
    const QString line = commandLine(command);
    run(getList(), [this, binding, line](const QString& output) {
        QList<QStringList> writes{
            {u"set"_s, entry(), u"name"_s, variantString(u"Ravelo"_s)},
            {u"set"_s, entry(), u"command"_s, variantString(line)},
            {u"set"_s, entry(), u"binding"_s, variantString(binding)},
        };
        // The entry is complete before GNOME finds it in the list.
        QStringList paths = parseVariantStrings(output);
        if (!paths.contains(QLatin1String(entryPath))) {
            paths.append(QString::fromLatin1(entryPath));
            writes.append(setList(paths));
        }
        runAll(writes, [this, binding, line] {
            qCDebug(lcPlatform, "GNOME's custom shortcut runs Ravelo on %s", qPrintable(binding));
            finish(true, binding, line);
        });
    });
}

void GnomeCustomShortcut::remove()
{
    if (!begin()) {
        return;
    }
    run(getList(), [this](const QString& output) {
        QStringList paths = parseVariantStrings(output);
        QList<QStringList> writes;
        if (paths.removeAll(QLatin1String(entryPath)) > 0) {
            writes.append(setList(paths));
        }
        for (const QString& key : {u"name"_s, u"command"_s, u"binding"_s}) {
            writes.append({u"reset"_s, entry(), key});
        }
        runAll(writes, [this] {
            qCDebug(lcPlatform, "GNOME's custom shortcut for Ravelo removed");
            finish(false);
        });
    });
}

void GnomeCustomShortcut::runAll(QList<QStringList> commands, std::function<void()> then)
{
    if (commands.isEmpty()) {
        then();
        return;
    }
    const QStringList first = commands.takeFirst();
    run(first, [this, commands, then](const QString&) { runAll(commands, then); });
}

void GnomeCustomShortcut::run(const QStringList& arguments, Then then)
{
    m_then = std::move(then);
    auto* process = new QProcess(this);
    m_process = process;
    process->setProgram(u"gsettings"_s);
    process->setArguments(arguments);
    connect(process, &QProcess::finished, this, &GnomeCustomShortcut::handleFinished);
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) {
            return;
        }
        process->disconnect(this);
        process->deleteLater();
        fail(tr("GNOME's shortcuts cannot be changed: the program gsettings is missing "
                "(package libglib2.0-bin)."));
    });
    m_deadline.start();
    process->start();
}

void GnomeCustomShortcut::handleFinished(int exitCode, QProcess::ExitStatus status)
{
    QProcess* process = m_process;
    if (!process) {
        return;
    }
    process->deleteLater();
    m_deadline.stop();
    const QString output = QString::fromUtf8(process->readAllStandardOutput());
    const QString errors = QString::fromUtf8(process->readAllStandardError()).trimmed();
    if (status != QProcess::NormalExit || exitCode != 0) {
        qCDebug(lcPlatform, "gsettings %s failed: %s", qPrintable(process->arguments().join(u' ')),
                qPrintable(errors));
        if (errors.contains("No such schema"_L1) || errors.contains("No schemas installed"_L1)) {
            fail(tr("GNOME's keyboard shortcut settings are not installed here (schema %1).")
                     .arg(QString::fromLatin1(listSchema)));
        } else {
            fail(tr("GNOME's shortcuts could not be changed: %1")
                     .arg(errors.section(u'\n', 0, 0).left(200)));
        }
        return;
    }
    if (Then then = std::exchange(m_then, nullptr)) {
        then(output);
    }
}

void GnomeCustomShortcut::finish(bool installed, const QString& binding, const QString& commandLine)
{
    m_busy = false;
    m_known = true;
    m_installed = installed;
    m_binding = binding;
    m_commandLine = commandLine;
    emit changed();
}

void GnomeCustomShortcut::fail(const QString& message)
{
    m_then = nullptr;
    m_deadline.stop();
    m_busy = false;
    m_error = message;
    emit changed();
}
