#pragma once

#include "SessionBus.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <optional>

/// A Secret Service of the test's own: gnome-keyring, unlocked, on a session bus of its own,
/// keeping its keyrings in a temporary folder. `useInThisProcess` points this process's
/// session bus at it; call it before anything here talks to D-Bus, which keeps its first bus,
/// and keep the service to the end of the process: GLib ends a process with SIGTERM when the
/// session bus it talked to goes away.
class SecretService {
public:
    SecretService() = default;
    ~SecretService();
    SecretService(const SecretService&) = delete;
    SecretService& operator=(const SecretService&) = delete;

    /// Starts the bus and the keyring; false (with `error()`) when either fails.
    bool start();
    QString error() const { return m_error; }
    void useInThisProcess() const;
    /// The environment of a process that is to use this Secret Service.
    QProcessEnvironment environment() const;

    /// Ravelo's API key in this keyring, read with secret-tool; none when there is no entry.
    std::optional<QString> apiKey() const;
    /// Stores Ravelo's API key where QtKeychain looks for it.
    bool storeApiKey(const QString& secret) const;
    bool clearApiKey() const;
    /// The Secret Service ends; the bus stays.
    void stopKeyring();

private:
    QString secretTool(const QStringList& arguments, const QByteArray& input, bool* ok) const;

    QTemporaryDir m_home;
    SessionBus m_bus;
    QProcess m_keyring;
    QString m_error;
};
