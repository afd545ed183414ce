#include "SecretService.h"

#include "model/PreferenceStore.h"

#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString secretServiceName = QStringLiteral("org.freedesktop.secrets");

const QString service = QString::fromLatin1(PreferenceStore::keyringService);

QStringList attributes()
{
    return {QStringLiteral("user"), QString::fromLatin1(Preferences::apiKey.name),
            QStringLiteral("server"), service};
}

} // namespace

SecretService::~SecretService()
{
    if (m_keyring.state() != QProcess::NotRunning) {
        m_keyring.terminate();
        m_keyring.waitForFinished();
    }
}

QProcessEnvironment SecretService::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_bus.address());
    env.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_home.filePath(QStringLiteral("run")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), m_home.filePath(QStringLiteral("cache")));
    // The keyring of a KDE session would be KWallet.
    env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
    env.remove(QStringLiteral("KDE_FULL_SESSION"));
    return env;
}

void SecretService::useInThisProcess() const
{
    const QProcessEnvironment env = environment();
    for (const QString& name :
         {QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("XDG_DATA_HOME"),
          QStringLiteral("XDG_RUNTIME_DIR")}) {
        qputenv(name.toLatin1().constData(), env.value(name).toLocal8Bit());
    }
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("KDE_FULL_SESSION");
}

bool SecretService::start()
{
    if (!m_home.isValid() || !QDir(m_home.path()).mkpath(QStringLiteral("data")) ||
        !QDir(m_home.path()).mkpath(QStringLiteral("run")) ||
        !QDir(m_home.path()).mkpath(QStringLiteral("cache"))) {
        m_error = QStringLiteral("no temporary folder");
        return false;
    }
    QFile::setPermissions(m_home.filePath(QStringLiteral("run")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    // No service is started on demand: a Secret Service that ends stays away, and none but
    // this one ever runs on the bus.
    QFile config(m_home.filePath(QStringLiteral("bus.conf")));
    if (!config.open(QIODevice::WriteOnly) ||
        config.write("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                     "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/"
                     "busconfig.dtd\">\n<busconfig><type>session</type>"
                     "<listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth><policy "
                     "context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                     "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n") < 0) {
        m_error = QStringLiteral("cannot write the bus configuration");
        return false;
    }
    config.close();
    if (!m_bus.start(config.fileName())) {
        m_error = QStringLiteral("dbus-daemon did not start");
        return false;
    }
    QDBusConnectionInterface* names = m_bus.connection().interface();
    QSignalSpy registered(names, &QDBusConnectionInterface::serviceRegistered);
    m_keyring.setProcessEnvironment(environment());
    m_keyring.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_keyring.start(QStringLiteral("gnome-keyring-daemon"),
                    {QStringLiteral("--foreground"), QStringLiteral("--unlock"),
                     QStringLiteral("--components=secrets")});
    if (!m_keyring.waitForStarted()) {
        m_error = QStringLiteral("gnome-keyring-daemon did not start");
        return false;
    }
    // The password of the new login keyring, read up to the end of its input.
    m_keyring.write("test-password");
    m_keyring.closeWriteChannel();
    if (!QTest::qWaitFor([&] { return names->isServiceRegistered(secretServiceName).value(); },
                         20000)) {
        m_error = QStringLiteral("gnome-keyring-daemon took no name on the bus: ") +
                  QString::fromLocal8Bit(m_keyring.readAllStandardOutput());
        return false;
    }
    return true;
}

QString SecretService::secretTool(const QStringList& arguments, const QByteArray& input,
                                  bool* ok) const
{
    QProcess tool;
    tool.setProcessEnvironment(environment());
    tool.start(QStringLiteral("secret-tool"), arguments);
    tool.write(input);
    tool.closeWriteChannel();
    *ok = tool.waitForFinished(20000) && tool.exitStatus() == QProcess::NormalExit &&
          tool.exitCode() == 0;
    return QString::fromUtf8(tool.readAllStandardOutput());
}

std::optional<QString> SecretService::apiKey() const
{
    bool ok = false;
    const QString secret =
        secretTool(QStringList{QStringLiteral("lookup")} + attributes(), {}, &ok);
    return ok ? std::optional<QString>(secret) : std::nullopt;
}

bool SecretService::storeApiKey(const QString& secret) const
{
    bool ok = false;
    // With QtKeychain's schema, so that its writes replace this entry rather than add one.
    secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=") + service,
                           QStringLiteral("xdg:schema"), QStringLiteral("org.qt.keychain")} +
                   attributes() + QStringList{QStringLiteral("type"), QStringLiteral("plaintext")},
               secret.toUtf8(), &ok);
    return ok;
}

void SecretService::stopKeyring()
{
    m_keyring.terminate();
    m_keyring.waitForFinished();
}

bool SecretService::clearApiKey() const
{
    bool ok = false;
    secretTool(QStringList{QStringLiteral("clear")} + attributes(), {}, &ok);
    return ok;
}
