#include "model/PreferenceStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcPreferences, "ravelo.preferences")

namespace {

constexpr QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;

QString keyName(const PreferenceKey& key)
{
    return QString::fromLatin1(key.name);
}

std::optional<bool> asBoolean(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool();
    }
    // The file stores text: a boolean written by another process reads back as a string.
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0) {
            return true;
        }
        if (text.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0) {
            return false;
        }
    }
    return std::nullopt;
}

std::optional<qint64> asInteger(const QVariant& value)
{
    bool ok = false;
    qint64 number = 0;
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
        number = value.toLongLong(&ok);
        break;
    case QMetaType::ULongLong:
        if (value.toULongLong() <= quint64(std::numeric_limits<qint64>::max())) {
            number = value.toLongLong(&ok);
        }
        break;
    case QMetaType::QString:
        number = value.toString().trimmed().toLongLong(&ok, 10);
        break;
    default:
        break;
    }
    return ok ? std::optional<qint64>(number) : std::nullopt;
}

} // namespace

const PreferenceKey* Preferences::find(QStringView name)
{
    for (const PreferenceKey& key : all) {
        if (name == QLatin1String(key.name)) {
            return &key;
        }
    }
    return nullptr;
}

PreferenceStore::PreferenceStore(QObject* parent)
    : QObject(parent)
    , m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Ravelo"), QStringLiteral("Ravelo")))
{
    setAsideUnreadableFile();
}

PreferenceStore::PreferenceStore(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_settings(std::make_unique<QSettings>(filePath, QSettings::NativeFormat))
{
    setAsideUnreadableFile();
}

// QSettings never writes over a file it could not parse, so every later change would be
// lost. Keep the damaged file beside the new one and carry over what could be read.
void PreferenceStore::setAsideUnreadableFile()
{
    if (m_settings->status() != QSettings::FormatError) {
        return;
    }
    const QString path = filePath();
    QHash<QString, QVariant> readable;
    for (const QString& key : m_settings->allKeys()) {
        readable.insert(key, m_settings->value(key));
    }
    const QString aside = path + QStringLiteral(".unreadable");
    QFile::remove(aside);
    if (!QFile::rename(path, aside)) {
        qCWarning(lcPreferences) << "The preferences file" << path
                                 << "cannot be read and cannot be moved aside;"
                                 << "changes will not be saved";
        return;
    }
    qCWarning(lcPreferences) << "The preferences file" << path
                             << "could not be read; it was kept as" << aside << "and"
                             << readable.size() << "readable values were carried over";
    m_settings = std::make_unique<QSettings>(path, QSettings::NativeFormat);
    restrictPermissions();
    for (auto it = readable.cbegin(); it != readable.cend(); ++it) {
        m_settings->setValue(it.key(), it.value());
    }
    m_settings->sync();
}

QString PreferenceStore::filePath() const
{
    return m_settings->fileName();
}

QVariant PreferenceStore::raw(const PreferenceKey& key) const
{
    return m_settings->value(keyName(key));
}

bool PreferenceStore::contains(const PreferenceKey& key) const
{
    return m_settings->contains(keyName(key));
}

std::optional<QString> PreferenceStore::string(const PreferenceKey& key) const
{
    const QVariant value = raw(key);
    if (value.typeId() == QMetaType::QString) {
        return value.toString();
    }
    if (key.absentText) {
        return QString::fromUtf8(key.absentText);
    }
    return std::nullopt;
}

bool PreferenceStore::boolean(const PreferenceKey& key) const
{
    return asBoolean(raw(key)).value_or(key.absentNumber != 0);
}

qint64 PreferenceStore::integer(const PreferenceKey& key) const
{
    return asInteger(raw(key)).value_or(key.absentNumber);
}

std::optional<QByteArray> PreferenceStore::data(const PreferenceKey& key) const
{
    const QVariant value = raw(key);
    if (value.typeId() == QMetaType::QByteArray) {
        return value.toByteArray();
    }
    // Hand-edited files hold the JSON as plain text.
    if (value.typeId() == QMetaType::QString) {
        return value.toString().toUtf8();
    }
    return std::nullopt;
}

void PreferenceStore::setString(const PreferenceKey& key, const QString& value)
{
    write(key, value);
}

void PreferenceStore::setBoolean(const PreferenceKey& key, bool value)
{
    write(key, value);
}

void PreferenceStore::setInteger(const PreferenceKey& key, qint64 value)
{
    write(key, value);
}

void PreferenceStore::setData(const PreferenceKey& key, const QByteArray& value)
{
    write(key, value);
}

bool PreferenceStore::readUseDoubleCopy() const
{
    return boolean(Preferences::useDoubleCopy);
}

void PreferenceStore::incrementPromptsUsed()
{
    const qint64 used = integer(Preferences::totalPromptsUsed);
    // The counter only gates two captions; it stops at the largest value instead of wrapping.
    setInteger(Preferences::totalPromptsUsed,
               used == std::numeric_limits<qint64>::max() ? used : used + 1);
}

QVariant PreferenceStore::value(const QString& name) const
{
    const PreferenceKey* key = Preferences::find(name);
    if (!key) {
        return {};
    }
    switch (key->type) {
    case PreferenceType::String: {
        const std::optional<QString> text = string(*key);
        return text ? QVariant(*text) : QVariant();
    }
    case PreferenceType::Boolean:
        return boolean(*key);
    case PreferenceType::Integer:
        return integer(*key);
    case PreferenceType::Data: {
        const std::optional<QByteArray> bytes = data(*key);
        return bytes ? QVariant(*bytes) : QVariant();
    }
    }
    return {};
}

void PreferenceStore::setValue(const QString& name, const QVariant& value)
{
    const PreferenceKey* key = Preferences::find(name);
    if (!key) {
        qCWarning(lcPreferences) << "Ignoring a write to the unknown preference" << name;
        return;
    }
    switch (key->type) {
    case PreferenceType::String:
        setString(*key, value.toString());
        break;
    case PreferenceType::Boolean:
        setBoolean(*key, value.toBool());
        break;
    case PreferenceType::Integer:
        setInteger(*key, value.toLongLong());
        break;
    case PreferenceType::Data:
        setData(*key, value.toByteArray());
        break;
    }
}

void PreferenceStore::write(const PreferenceKey& key, const QVariant& value)
{
    restrictPermissions();
    m_settings->setValue(keyName(key), value);
    m_settings->sync();
    if (m_settings->status() != QSettings::NoError) {
        qCWarning(lcPreferences) << "Could not save the preferences to" << filePath();
    }
    restrictPermissions();
    emit changed();
}

// The file is replaced atomically on every write, and the replacement keeps the mode of
// the file it replaces: creating it owner-only once keeps it owner-only.
void PreferenceStore::restrictPermissions()
{
    const QString path = filePath();
    QFileInfo info(path);
    if (!info.exists()) {
        if (!QDir().mkpath(info.absolutePath())) {
            return;
        }
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly, ownerOnly)) {
            return;
        }
    } else if ((info.permissions() & ~(ownerOnly | QFile::ReadUser | QFile::WriteUser)) != 0) {
        QFile::setPermissions(path, ownerOnly);
    }
}
