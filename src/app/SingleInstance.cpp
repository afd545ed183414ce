#include "app/SingleInstance.h"

#include "app/AppLogging.h"
#include "platform/ActivationToken.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include <algorithm>

#include <unistd.h>

Q_LOGGING_CATEGORY(lcApp, "ravelo.app", QtWarningMsg)

namespace {

constexpr QByteArrayView activateLine = "activate\n";
constexpr QByteArrayView triggerLine = "trigger\n";
constexpr QByteArrayView quitLine = "quit\n";
constexpr QByteArrayView acceptedLine = "ok\n";
// No request is longer; a peer that sends more without a line break is not Ravelo.
constexpr qint64 maxRequestLength = ActivationToken::maxLength + 16;
// A peer that connects and then says nothing is dropped after this long.
constexpr int requestTimeoutMs = 5000;

} // namespace

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent)
{}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::socketName()
{
    const QString runtimeDir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtimeDir.isEmpty() && QDir::isAbsolutePath(runtimeDir) &&
        QFileInfo(runtimeDir).isDir()) {
        return QDir(runtimeDir).filePath(QStringLiteral("ravelo.socket"));
    }
    return QStringLiteral("ravelo-%1").arg(::getuid());
}

bool SingleInstance::send(Request request, int timeoutMs, const QByteArray& activationToken)
{
    QLocalSocket socket;
    socket.connectToServer(socketName());
    if (!socket.waitForConnected(timeoutMs)) {
        return false;
    }
    QByteArray line = (request == Request::Trigger ? triggerLine
                       : request == Request::Quit  ? quitLine
                                                   : activateLine)
                          .toByteArray();
    if (request == Request::Trigger && ActivationToken::isValid(activationToken)) {
        line.insert(line.size() - 1, ' ' + activationToken);
    }
    socket.write(line);
    if (!socket.waitForBytesWritten(timeoutMs)) {
        return false;
    }
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(timeoutMs)) {
            return false;
        }
    }
    if (socket.readLine(maxRequestLength) != acceptedLine) {
        return false;
    }
    if (request == Request::Quit && socket.state() == QLocalSocket::ConnectedState) {
        socket.waitForDisconnected(timeoutMs);
    }
    return true;
}

bool SingleInstance::listen()
{
    if (isListening()) {
        return true;
    }
    const QString name = socketName();
    auto* server = new QLocalServer(this);
    // Only this user may connect (the runtime directory is private already).
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(name)) {
        if (server->serverError() != QAbstractSocket::AddressInUseError) {
            qCWarning(lcApp, "Cannot listen on %s: %s", qPrintable(name),
                      qPrintable(server->errorString()));
            delete server;
            return false;
        }
        // Someone is there, or a socket file of an instance that has gone.
        QLocalSocket probe;
        probe.connectToServer(name);
        if (probe.waitForConnected(1000)) {
            delete server;
            return false;
        }
        QLocalServer::removeServer(name);
        if (!server->listen(name)) {
            qCWarning(lcApp, "Cannot listen on %s: %s", qPrintable(name),
                      qPrintable(server->errorString()));
            delete server;
            return false;
        }
    }
    m_server = server;
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    qCDebug(lcApp, "Listening on %s", qPrintable(m_server->fullServerName()));
    return true;
}

bool SingleInstance::isListening() const
{
    return m_server && m_server->isListening();
}

void SingleInstance::acceptConnections()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
        QTimer::singleShot(requestTimeoutMs, socket, [socket] { socket->abort(); });
        readRequest(socket);
    }
}

void SingleInstance::readRequest(QLocalSocket* socket)
{
    if (!socket->canReadLine()) {
        // Bytes that begin no request are turned away at once, not when the time is up.
        const QByteArray start = socket->peek(8);
        const auto begins = [&start](QByteArrayView line) {
            const QByteArrayView word = line.chopped(1);
            return word.startsWith(
                QByteArrayView(start).first(std::min(start.size(), word.size())));
        };
        if (socket->bytesAvailable() > maxRequestLength ||
            !(begins(triggerLine) || begins(activateLine) || begins(quitLine))) {
            socket->abort();
        }
        return;
    }
    QByteArray line = socket->readLine(maxRequestLength + 1);
    // "trigger TOKEN": the desktop's permission to take the focus, for the panel.
    QByteArray token;
    if (const qsizetype space = line.indexOf(' '); space > 0 && line.endsWith('\n')) {
        token = line.mid(space + 1, line.size() - space - 2);
        line = line.left(space) + '\n';
        if (line != triggerLine || !ActivationToken::isValid(token)) {
            line.clear();
        }
    }
    const bool trigger = line == triggerLine;
    const bool activate = line == activateLine;
    const bool quit = line == quitLine;
    if (!trigger && !activate && !quit) {
        qCDebug(lcApp, "Unknown request on the instance socket");
        socket->abort();
        return;
    }
    socket->write(acceptedLine.data(), acceptedLine.size());
    socket->flush();
    if (quit) {
        qCDebug(lcApp, "Quit requested through the instance socket");
        emit quitRequested();
        return;
    }
    socket->disconnectFromServer();
    if (trigger) {
        qCDebug(lcApp, "Trigger requested through the instance socket%s",
                token.isEmpty() ? "" : " with an activation token");
        ActivationToken::setPending(token);
        emit triggerRequested();
    } else {
        qCDebug(lcApp, "Another start of Ravelo handed over");
        emit activationRequested();
    }
}
