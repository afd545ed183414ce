#include "GSettingsKeyfile.h"

#include "platform/gnome/GnomeCustomShortcut.h"

#include <QFile>
#include <QProcess>

namespace {

QString run(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("gsettings"), arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

QString entrySchema(const QString& path)
{
    return QString::fromLatin1(GnomeCustomShortcut::entrySchema) + QLatin1Char(':') + path;
}

} // namespace

void GSettingsKeyfile::reset()
{
    qputenv("GSETTINGS_BACKEND", "keyfile");
    QFile::remove(qEnvironmentVariable("XDG_CONFIG_HOME") +
                  QStringLiteral("/glib-2.0/settings/keyfile"));
}

QString GSettingsKeyfile::get(const QString& schema, const QString& key)
{
    return run({QStringLiteral("get"), schema, key});
}

bool GSettingsKeyfile::set(const QString& schema, const QString& key, const QString& value)
{
    return QProcess::execute(QStringLiteral("gsettings"),
                             {QStringLiteral("set"), schema, key, value}) == 0;
}

QStringList GSettingsKeyfile::customPaths()
{
    return GnomeCustomShortcut::parseVariantStrings(
        get(QString::fromLatin1(GnomeCustomShortcut::listSchema),
            QString::fromLatin1(GnomeCustomShortcut::listKey)));
}

QString GSettingsKeyfile::entryValue(const QString& path, const QString& key)
{
    return GnomeCustomShortcut::parseVariantStrings(get(entrySchema(path), key)).value(0);
}

void GSettingsKeyfile::addForeignShortcut(const QString& path, const QString& binding)
{
    set(entrySchema(path), QStringLiteral("name"), QStringLiteral("'Terminal'"));
    set(entrySchema(path), QStringLiteral("command"), QStringLiteral("'gnome-terminal'"));
    set(entrySchema(path), QStringLiteral("binding"), GnomeCustomShortcut::variantString(binding));
    set(QString::fromLatin1(GnomeCustomShortcut::listSchema),
        QString::fromLatin1(GnomeCustomShortcut::listKey),
        GnomeCustomShortcut::variantStringList(customPaths() << path));
}
