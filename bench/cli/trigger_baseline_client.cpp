// The least a QtCore + QtNetwork program does for `ravelo trigger`: connect to the instance
// socket, send the request and wait for its answer. bench_trigger_startup compares with it.
#include <QCoreApplication>
#include <QDir>
#include <QLocalSocket>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QLocalSocket socket;
    socket.connectToServer(
        QDir(qEnvironmentVariable("XDG_RUNTIME_DIR")).filePath(QStringLiteral("ravelo.socket")));
    if (!socket.waitForConnected(3000)) {
        return 1;
    }
    socket.write("trigger\n");
    if (!socket.waitForBytesWritten(3000)) {
        return 1;
    }
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(3000)) {
            return 1;
        }
    }
    return socket.readLine() == "ok\n" ? 0 : 1;
}
