#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QSettings>
#include <QString>
#include <QTimer>
#include <QtQmlIntegration/qqmlintegration.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>

namespace QKeychain {
class Job;
}

enum class PreferenceType { String, Boolean, Integer, Data };

/// One stored preference: its name in the file, its type and what a read gives when
/// the key is absent or holds a value of another type.
struct PreferenceKey {
    const char* name;
    PreferenceType type;
    const char* absentText = nullptr; ///< String keys: the default, or none.
    qint64 absentNumber = 0;          ///< Boolean and integer keys.
};

/// Every key Ravelo reads or writes. No other key exists and none is ever removed.
namespace Preferences {
inline constexpr PreferenceKey apiKey{"openai_api_key", PreferenceType::String};
inline constexpr PreferenceKey model{"openai_model", PreferenceType::String, "gpt-4o-mini"};
/// Optional base address of an OpenAI-compatible server; absent means OpenAI itself.
inline constexpr PreferenceKey baseUrl{"openai_base_url", PreferenceType::String};
inline constexpr PreferenceKey userPrompts{"userPrompts", PreferenceType::Data};
inline constexpr PreferenceKey hasCompletedOnboarding{"has_completed_onboarding",
                                                      PreferenceType::Boolean};
inline constexpr PreferenceKey useDoubleCopy{"use_double_copy", PreferenceType::Boolean, nullptr,
                                             1};
inline constexpr PreferenceKey customHotkeyKeyCode{"custom_hotkey_keycode",
                                                   PreferenceType::Integer};
inline constexpr PreferenceKey customHotkeyModifiers{"custom_hotkey_modifiers",
                                                     PreferenceType::Integer};
inline constexpr PreferenceKey totalPromptsUsed{"total_prompts_used", PreferenceType::Integer};
/// The prompts' own global hotkeys: a JSON object from prompt id to {"keycode", "modifiers"},
/// kept apart from the prompt list so that the list's form stays as it is.
inline constexpr PreferenceKey promptHotkeys{"prompt_hotkeys", PreferenceType::Data};

/// The modifier bits a recorded hotkey can hold: Command 256, Shift 512, Option 2048 and
/// Control 4096.
inline constexpr quint32 hotkeyModifierBits = 256 | 512 | 2048 | 4096;

inline constexpr std::array all{apiKey,
                                model,
                                baseUrl,
                                userPrompts,
                                hasCompletedOnboarding,
                                useDoubleCopy,
                                customHotkeyKeyCode,
                                customHotkeyModifiers,
                                totalPromptsUsed,
                                promptHotkeys};

/// The entry of the table with that stored name, or none.
const PreferenceKey* find(QStringView name);
} // namespace Preferences

/// The stored custom hotkey in the form the trigger takes.
struct StoredHotkey {
    quint32 keyCode;
    quint32 modifiers;
    friend bool operator==(const StoredHotkey&, const StoredHotkey&) = default;
};

/// The user's preferences, kept in ~/.config/Ravelo/Ravelo.conf. Reads are typed and
/// fall back to the key's absent value; every write is flushed to disk at once and
/// followed by `changed()`. The file is readable by its owner alone: it holds the API key.
///
/// Several processes share the file (the application, `ravelo run`). Writes are made one at a
/// time under a lock beside the file, and the usage counter is always taken from the file
/// itself, so no process writes back a count it read earlier.
///
/// A damaged file is moved aside (Ravelo.conf.unreadable, then .unreadable.1, ...) and the
/// values that can still be read are carried over under their own names. When the server
/// address cannot be carried over, the new file holds a note in its place that is no
/// address: runs then fail instead of going to another server.
///
/// Once `useKeyring` is called, the API key lives in the system keyring (the Secret Service:
/// gnome-keyring, KWallet, KeePassXC) and in memory; a key found in the file is moved there
/// and leaves the file only once the keyring has it. Without a keyring it stays in the file.
class PreferenceStore : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application owns the one preference store.")
    Q_PROPERTY(ApiKeyStorage apiKeyStorage READ apiKeyStorage NOTIFY apiKeyStorageChanged)
    Q_PROPERTY(QString filePath READ filePath CONSTANT)

public:
    enum class ApiKeyStorage {
        File,
        /// The keyring has not answered yet: the key is not known.
        ReadingKeyring,
        Keyring,
    };
    Q_ENUM(ApiKeyStorage)

    /// The service of the key's keyring entry; the entry's key is the preference's name.
    static constexpr const char* keyringService = "Ravelo";

    explicit PreferenceStore(QObject* parent = nullptr);
    /// A store over a file of its own (tests, tools).
    explicit PreferenceStore(const QString& filePath, QObject* parent = nullptr);

    /// Waits for the keyring writes still to be made, so that no key typed is lost.
    ~PreferenceStore() override;

    QString filePath() const;

    /// Reads the API key from the keyring from now on (see the class). Until the keyring
    /// answers, `apiKeyStorage` is ReadingKeyring and the key reads as absent.
    void useKeyring();
    ApiKeyStorage apiKeyStorage() const { return m_apiKeyStorage; }
    /// The keyring write of a changed key waits this long for the next change.
    void setKeyringWriteDelay(std::chrono::milliseconds delay);
    /// Writes a changed key to the keyring now instead of after the delay.
    Q_INVOKABLE void saveApiKeyNow();
    /// Returns once every change of the key is in the keyring, or in the file where the
    /// keyring refused it.
    void finishKeyringWrites();

    bool contains(const PreferenceKey& key) const;
    /// The stored text; the key's default text, or none, when absent.
    std::optional<QString> string(const PreferenceKey& key) const;
    bool boolean(const PreferenceKey& key) const;
    qint64 integer(const PreferenceKey& key) const;
    std::optional<QByteArray> data(const PreferenceKey& key) const;

    void setString(const PreferenceKey& key, const QString& value);
    void setBoolean(const PreferenceKey& key, bool value);
    void setInteger(const PreferenceKey& key, qint64 value);
    void setData(const PreferenceKey& key, const QByteArray& value);

    /// Double copy is on unless a boolean false is stored.
    bool readUseDoubleCopy() const;
    /// Adds one to the count stored in the file now, whatever this store read before.
    void incrementPromptsUsed();

    /// The stored hotkey; none when the key code is 0 or either value is one the recorder
    /// never writes (outside 32 bits, negative, or modifier bits other than the four).
    std::optional<StoredHotkey> customHotkey() const;
    static std::optional<StoredHotkey> hotkeyFromStored(qint64 keyCode, qint64 modifiers);

    /// What stands in the file for a server address lost with a damaged file.
    static QString lostBaseUrlNote(const QString& keptAs);

    /// For QML: the value of a key by its stored name, typed as the table says; an
    /// unknown name gives undefined. Writes check the name and type the same way.
    Q_INVOKABLE QVariant value(const QString& name) const;
    Q_INVOKABLE void setValue(const QString& name, const QVariant& value);

signals:
    /// Emitted after every write, of any key.
    void changed();
    /// Once the keyring has answered, the key may read differently: views show it anew.
    void apiKeyStorageChanged();
    /// The keyring took a changed key.
    void apiKeyStoredInKeyring();

private:
    QVariant raw(const PreferenceKey& key) const;
    void write(const PreferenceKey& key, const QVariant& value);
    void restrictPermissions();
    void setAsideDamagedFile();
    QString lockPath() const;
    std::optional<qint64> countInFile() const;

    bool keyInMemory(const PreferenceKey& key) const;
    std::optional<QString> fileString(const PreferenceKey& key) const;
    bool needsKeyringWrite() const;
    void setApiKeyStorage(ApiKeyStorage storage);
    void keyringRead(QKeychain::Job* job);
    void startKeyringWrite();
    void keyringWritten(QKeychain::Job* job, const QString& written);
    void keepApiKeyInFile(const QString& reason);
    void removeApiKeyFromFile();

    std::unique_ptr<QSettings> m_settings;
    ApiKeyStorage m_apiKeyStorage = ApiKeyStorage::File;
    /// The key while the keyring keeps it (or is being asked for it).
    std::optional<QString> m_apiKey;
    /// What the keyring is known to hold.
    std::optional<QString> m_keyringKey;
    bool m_keyEditedWhileReading = false;
    QTimer m_keyringWriteTimer;
    QPointer<QKeychain::Job> m_keyringJob;
};
