#pragma once

#include <QObject>
#include <QString>

class QLocalServer;
class QLocalSocket;

/// One running Ravelo per user. The running instance listens on a local socket that only
/// its user can reach; later starts and `ravelo trigger` talk to it instead of running a
/// second copy.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Request { Activate, Trigger, Quit };

    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    /// `$XDG_RUNTIME_DIR/ravelo.socket`; without a runtime directory a name with the user
    /// id, which Qt places in the temporary directory.
    static QString socketName();

    /// Hands the request to the running instance. True once it has confirmed it; false
    /// when no instance answers within `timeoutMs`. A quit request also waits (as long
    /// again) until the instance has closed its socket. A trigger carries the activation
    /// token it was given (ActivationToken) to the instance.
    static bool send(Request request, int timeoutMs = 3000,
                     const QByteArray& activationToken = QByteArray());

    /// Starts listening. False when another instance already answers on the socket; a
    /// socket left behind by an instance that is gone is replaced.
    bool listen();
    bool isListening() const;

signals:
    /// A second start of Ravelo was handed over to this instance.
    void activationRequested();
    /// `ravelo trigger` asks for what a double copy does.
    void triggerRequested();
    /// `ravelo quit`. The connection stays open until this instance is gone.
    void quitRequested();

private:
    void acceptConnections();
    void readRequest(QLocalSocket* socket);

    QLocalServer* m_server = nullptr;
};
