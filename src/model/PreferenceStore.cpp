#include "model/PreferenceStore.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QStringDecoder>
#include <qt6keychain/keychain.h>

#include <algorithm>
#include <limits>

Q_LOGGING_CATEGORY(lcPreferences, "ravelo.preferences", QtInfoMsg)

namespace {

constexpr QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
// A keyring that asks to be unlocked waits for the user, who is quitting; a key it has not
// taken by then is kept in the file instead.
constexpr std::chrono::seconds keyringPatienceAtEnd{5};
constexpr std::chrono::milliseconds defaultKeyringWriteDelay{700};

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

const QString lostBaseUrlPrefix =
    QStringLiteral("(lost: the preferences file was damaged and the server address could not "
                   "be read; the old file is kept as ");

QString defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Ravelo/Ravelo.conf");
}

/// Whether the bytes can be a preferences file: UTF-8 text without control characters other
/// than tabs and line ends. The file's own parser accepts binary junk as keys of its own.
bool isText(const QByteArray& bytes)
{
    const bool hasControl = std::any_of(bytes.cbegin(), bytes.cend(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') || byte == 0x7f;
    });
    if (hasControl) {
        return false;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    [[maybe_unused]] const QString text = decoder(bytes);
    return !decoder.hasError();
}

/// The value of a top-level key as the file holds it now, read from its text: the settings
/// object serves what it read earlier and only notices a change by size and modification time.
std::optional<QByteArray> topLevelValue(const QByteArray& text, QByteArrayView name)
{
    std::optional<QByteArray> found;
    bool topLevel = true;
    for (const QByteArray& rawLine : text.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            topLevel = line == "[General]";
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (!topLevel || line.startsWith(';') || equals < 0 ||
            line.left(equals).trimmed() != name) {
            continue;
        }
        QByteArray value = line.mid(equals + 1).trimmed();
        if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"')) {
            value = value.mid(1, value.size() - 2);
        }
        found = value;
    }
    return found;
}

QString freeAsideName(const QString& path)
{
    const QString base = path + QStringLiteral(".unreadable");
    QString name = base;
    for (int n = 1; QFileInfo::exists(name); ++n) {
        name = base + QLatin1Char('.') + QString::number(n);
    }
    return name;
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
    : PreferenceStore(defaultFilePath(), parent)
{}

PreferenceStore::PreferenceStore(const QString& filePath, QObject* parent)
    : QObject(parent)
{
    m_keyringWriteTimer.setSingleShot(true);
    m_keyringWriteTimer.setInterval(defaultKeyringWriteDelay);
    connect(&m_keyringWriteTimer, &QTimer::timeout, this, &PreferenceStore::startKeyringWrite);
    // Read under the writers' lock, so that the text judged below is the text parsed.
    QLockFile lock(QFileInfo(filePath).absoluteFilePath() + QStringLiteral(".writer.lock"));
    lock.lock();
    m_settings = std::make_unique<QSettings>(filePath, QSettings::NativeFormat);
    setAsideDamagedFile();
    if (string(Preferences::baseUrl).value_or(QString()).startsWith(lostBaseUrlPrefix)) {
        qCWarning(lcPreferences, "The server address was lost with a damaged preferences file: "
                                 "runs fail until it is entered again in the preferences.");
    }
}

QString PreferenceStore::lockPath() const
{
    return filePath() + QStringLiteral(".writer.lock");
}

QString PreferenceStore::lostBaseUrlNote(const QString& keptAs)
{
    return lostBaseUrlPrefix + keptAs + QStringLiteral(". Enter the address again.)");
}

// QSettings never writes over a file it could not parse, so every later change would be
// lost; and it reads binary junk as keys of its own. Keep the damaged file beside the new one
// and carry over every known key that can still be read, under its own name.
void PreferenceStore::setAsideDamagedFile()
{
    const QString path = filePath();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    if (m_settings->status() != QSettings::FormatError && isText(bytes)) {
        return;
    }

    // A line such as "[oops" puts the keys after it in a section of that name.
    QHash<QString, QVariant> readable;
    for (const QString& stored : m_settings->allKeys()) {
        const QString name = stored.section(QLatin1Char('/'), -1);
        const bool topLevel = name == stored;
        if (Preferences::find(name) && (topLevel || !readable.contains(name))) {
            readable.insert(name, m_settings->value(stored));
        }
    }
    const QString aside = freeAsideName(path);
    if (!QFile::rename(path, aside)) {
        qCWarning(lcPreferences) << "The preferences file" << path
                                 << "is damaged and cannot be moved aside;"
                                 << "changes will not be saved";
        return;
    }
    const QString baseUrlName = keyName(Preferences::baseUrl);
    const bool baseUrlLost =
        !readable.contains(baseUrlName) && bytes.contains(Preferences::baseUrl.name);
    if (baseUrlLost) {
        readable.insert(baseUrlName, lostBaseUrlNote(aside));
    }
    qCWarning(lcPreferences).noquote()
        << "The preferences file" << path << "is damaged; it was kept as" << aside << "and"
        << readable.size() - int(baseUrlLost) << "readable values were carried over.";
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

bool PreferenceStore::keyInMemory(const PreferenceKey& key) const
{
    return m_apiKeyStorage != ApiKeyStorage::File &&
           qstrcmp(key.name, Preferences::apiKey.name) == 0;
}

bool PreferenceStore::contains(const PreferenceKey& key) const
{
    if (keyInMemory(key)) {
        return m_apiKey.has_value();
    }
    return m_settings->contains(keyName(key));
}

std::optional<QString> PreferenceStore::string(const PreferenceKey& key) const
{
    if (keyInMemory(key)) {
        return m_apiKey;
    }
    return fileString(key);
}

std::optional<QString> PreferenceStore::fileString(const PreferenceKey& key) const
{
    const QVariant value = raw(key);
    if (value.typeId() == QMetaType::QString) {
        return value.toString();
    }
    // Text with a comma and no quotes reads back as a list; "@ByteArray(...)" as bytes.
    if (value.typeId() == QMetaType::QStringList) {
        return value.toStringList().join(QLatin1Char(','));
    }
    if (value.typeId() == QMetaType::QByteArray) {
        return QString::fromUtf8(value.toByteArray());
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
    if (!keyInMemory(key)) {
        write(key, value);
        return;
    }
    // Typing in a key field writes on every keystroke: the keyring gets the key once the
    // typing pauses.
    m_keyEditedWhileReading = m_apiKeyStorage == ApiKeyStorage::ReadingKeyring;
    if (m_apiKey != value) {
        m_apiKey = value;
        m_keyringWriteTimer.start();
    }
    emit changed();
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

std::optional<qint64> PreferenceStore::countInFile() const
{
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const std::optional<QByteArray> text =
        topLevelValue(file.readAll(), Preferences::totalPromptsUsed.name);
    return text ? asInteger(QString::fromUtf8(*text)) : std::nullopt;
}

void PreferenceStore::incrementPromptsUsed()
{
    restrictPermissions();
    {
        QLockFile lock(lockPath());
        lock.lock();
        const qint64 used = countInFile().value_or(0);
        // The counter only gates two captions; it stops at the largest value instead of
        // wrapping.
        m_settings->setValue(keyName(Preferences::totalPromptsUsed),
                             used == std::numeric_limits<qint64>::max() ? used : used + 1);
        m_settings->sync();
    }
    if (m_settings->status() != QSettings::NoError) {
        qCWarning(lcPreferences) << "Could not save the preferences to" << filePath();
    }
    restrictPermissions();
    emit changed();
}

std::optional<StoredHotkey> PreferenceStore::hotkeyFromStored(qint64 keyCode, qint64 modifiers)
{
    const auto fits = [](qint64 value) {
        return value >= 0 && value <= std::numeric_limits<quint32>::max();
    };
    if (keyCode == 0 || !fits(keyCode) || !fits(modifiers) ||
        (quint32(modifiers) & ~Preferences::hotkeyModifierBits) != 0) {
        return std::nullopt;
    }
    return StoredHotkey{quint32(keyCode), quint32(modifiers)};
}

std::optional<StoredHotkey> PreferenceStore::customHotkey() const
{
    const std::optional<qint64> keyCode = asInteger(raw(Preferences::customHotkeyKeyCode));
    const std::optional<qint64> modifiers = asInteger(raw(Preferences::customHotkeyModifiers));
    // An absent mask is 0; one that is there but not a number is no mask of the recorder's.
    if (!keyCode || (!modifiers && contains(Preferences::customHotkeyModifiers))) {
        return std::nullopt;
    }
    return hotkeyFromStored(*keyCode, modifiers.value_or(0));
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

void PreferenceStore::useKeyring()
{
    if (m_apiKeyStorage != ApiKeyStorage::File) {
        return;
    }
    m_apiKey.reset();
    m_keyringKey.reset();
    m_keyEditedWhileReading = false;
    setApiKeyStorage(ApiKeyStorage::ReadingKeyring);
    auto* job = new QKeychain::ReadPasswordJob(QString::fromLatin1(keyringService), this);
    job->setKey(keyName(Preferences::apiKey));
    connect(job, &QKeychain::Job::finished, this, &PreferenceStore::keyringRead);
    m_keyringJob = job;
    job->start();
}

void PreferenceStore::setKeyringWriteDelay(std::chrono::milliseconds delay)
{
    m_keyringWriteTimer.setInterval(delay);
}

void PreferenceStore::setApiKeyStorage(ApiKeyStorage storage)
{
    if (m_apiKeyStorage == storage) {
        return;
    }
    m_apiKeyStorage = storage;
    emit apiKeyStorageChanged();
}

bool PreferenceStore::needsKeyringWrite() const
{
    return m_apiKeyStorage == ApiKeyStorage::Keyring &&
           (m_apiKey.value_or(QString()) != m_keyringKey.value_or(QString()) ||
            m_settings->contains(keyName(Preferences::apiKey)));
}

void PreferenceStore::keyringRead(QKeychain::Job* job)
{
    m_keyringJob = nullptr;
    const QKeychain::Error error = job->error();
    if (error != QKeychain::NoError && error != QKeychain::EntryNotFound) {
        // Common enough (no session bus, no keyring installed); the General tab says so.
        qCDebug(lcPreferences).noquote() << "No keyring for the API key, it is kept in"
                                         << filePath() << "-" << job->errorString();
        const std::optional<QString> typed =
            m_keyEditedWhileReading ? m_apiKey : std::optional<QString>();
        m_apiKey.reset();
        setApiKeyStorage(ApiKeyStorage::File);
        if (typed) {
            write(Preferences::apiKey, *typed);
        }
        return;
    }
    if (error == QKeychain::NoError) {
        m_keyringKey = static_cast<QKeychain::ReadPasswordJob*>(job)->textData();
    }
    // A key in the file is one the keyring has not taken yet: one from before the keyring,
    // or one typed while it was away. It is the newer one.
    const std::optional<QString> inFile = fileString(Preferences::apiKey);
    if (!m_keyEditedWhileReading) {
        m_apiKey = inFile ? inFile : m_keyringKey;
    }
    if (inFile) {
        qCDebug(lcPreferences).noquote()
            << "Moving the API key from" << filePath() << "to the keyring";
    }
    setApiKeyStorage(ApiKeyStorage::Keyring);
    startKeyringWrite();
}

void PreferenceStore::saveApiKeyNow()
{
    if (m_keyringWriteTimer.isActive()) {
        startKeyringWrite();
    }
}

void PreferenceStore::startKeyringWrite()
{
    m_keyringWriteTimer.stop();
    if (m_keyringJob || !needsKeyringWrite()) {
        return;
    }
    const QString key = m_apiKey.value_or(QString());
    const QString service = QString::fromLatin1(keyringService);
    QKeychain::Job* job = nullptr;
    if (key.isEmpty()) {
        job = new QKeychain::DeletePasswordJob(service, this);
    } else {
        auto* writeJob = new QKeychain::WritePasswordJob(service, this);
        writeJob->setTextData(key);
        job = writeJob;
    }
    job->setKey(keyName(Preferences::apiKey));
    connect(job, &QKeychain::Job::finished, this,
            [this, key](QKeychain::Job* finished) { keyringWritten(finished, key); });
    m_keyringJob = job;
    job->start();
}

void PreferenceStore::keyringWritten(QKeychain::Job* job, const QString& written)
{
    m_keyringJob = nullptr;
    const QKeychain::Error error = job->error();
    if (error != QKeychain::NoError && !(written.isEmpty() && error == QKeychain::EntryNotFound)) {
        keepApiKeyInFile(job->errorString());
        return;
    }
    m_keyringKey = written.isEmpty() ? std::nullopt : std::optional<QString>(written);
    removeApiKeyFromFile();
    emit apiKeyStoredInKeyring();
    // Typed on while the keyring was writing, and no longer typing.
    if (!m_keyringWriteTimer.isActive()) {
        startKeyringWrite();
    }
}

void PreferenceStore::keepApiKeyInFile(const QString& reason)
{
    qCWarning(lcPreferences).noquote()
        << "The keyring did not take the API key, it is kept in" << filePath() << "-" << reason;
    const std::optional<QString> key = m_apiKey;
    m_apiKey.reset();
    m_keyringWriteTimer.stop();
    setApiKeyStorage(ApiKeyStorage::File);
    if (key) {
        write(Preferences::apiKey, *key);
    }
}

void PreferenceStore::removeApiKeyFromFile()
{
    if (!m_settings->contains(keyName(Preferences::apiKey))) {
        return;
    }
    {
        QLockFile lock(lockPath());
        lock.lock();
        const std::optional<qint64> count = countInFile();
        m_settings->remove(keyName(Preferences::apiKey));
        if (count) {
            m_settings->setValue(keyName(Preferences::totalPromptsUsed), *count);
        }
        m_settings->sync();
    }
    if (m_settings->status() != QSettings::NoError) {
        qCWarning(lcPreferences) << "Could not save the preferences to" << filePath();
    }
}

void PreferenceStore::finishKeyringWrites()
{
    startKeyringWrite();
    // Nothing to lose when nothing was typed while the keyring was being read, or when the
    // file still holds the key on its way to the keyring: a keyring waiting to be unlocked
    // does not hold up the end then.
    const auto keyIsSafe = [this] {
        return (m_apiKeyStorage == ApiKeyStorage::ReadingKeyring && !m_keyEditedWhileReading) ||
               (m_settings->contains(keyName(Preferences::apiKey)) &&
                fileString(Preferences::apiKey) == m_apiKey);
    };
    while (m_keyringJob && !keyIsSafe()) {
        const QPointer<QKeychain::Job> job = m_keyringJob;
        QEventLoop loop;
        connect(job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(keyringPatienceAtEnd, &loop, &QEventLoop::quit);
        loop.exec();
        if (m_keyringJob == job) {
            m_keyringJob = nullptr;
            if (job) {
                job->disconnect(this);
            }
            keepApiKeyInFile(QStringLiteral("no answer"));
            return;
        }
        startKeyringWrite();
    }
}

PreferenceStore::~PreferenceStore()
{
    finishKeyringWrites();
}

void PreferenceStore::write(const PreferenceKey& key, const QVariant& value)
{
    restrictPermissions();
    {
        QLockFile lock(lockPath());
        lock.lock();
        // This store may not have seen the file change (the same size and modification
        // time): the count other processes stored must not be replaced by the one it read.
        const std::optional<qint64> count = countInFile();
        m_settings->setValue(keyName(key), value);
        if (count && qstrcmp(key.name, Preferences::totalPromptsUsed.name) != 0) {
            m_settings->setValue(keyName(Preferences::totalPromptsUsed), *count);
        }
        m_settings->sync();
    }
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
