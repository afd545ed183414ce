#include "DesktopSession.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlProperty>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>
#include <csignal>

DesktopSession::~DesktopSession()
{
    if (m_tray.state() != QProcess::NotRunning) {
        m_tray.terminate();
        m_tray.waitForFinished(3000);
    }
    if (m_windowManager.state() != QProcess::NotRunning) {
        m_windowManager.terminate();
        m_windowManager.waitForFinished(3000);
    }
}

bool DesktopSession::startWindowManager()
{
    for (const char* tool : {"openbox", "xdotool", "xclip", "xprop"}) {
        if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty()) {
            qWarning("%s is missing", tool);
            return false;
        }
    }
    m_windowManager.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_windowManager.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
    if (!m_windowManager.waitForStarted()) {
        return false;
    }
    return QTest::qWaitFor(
        [] {
            return QProcess::execute(QStringLiteral("sh"),
                                     {QStringLiteral("-c"),
                                      QStringLiteral("xprop -root _NET_SUPPORTING_WM_CHECK | "
                                                     "grep -q 'window id'")}) == 0;
        },
        10000);
}

bool DesktopSession::pauseWindowManager(bool paused)
{
    return m_windowManager.state() == QProcess::Running &&
           ::kill(pid_t(m_windowManager.processId()), paused ? SIGSTOP : SIGCONT) == 0;
}

namespace {

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(5000) || process.exitCode() != 0) {
        return QString();
    }
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

bool DesktopSession::startTray()
{
    if (m_tray.state() != QProcess::NotRunning) {
        return true;
    }
    if (QStandardPaths::findExecutable(QStringLiteral("trayer")).isEmpty()) {
        qWarning("trayer is missing");
        return false;
    }
    m_tray.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_tray.start(QStringLiteral("trayer"),
                 {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
                  QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("request"),
                  QStringLiteral("--height"), QStringLiteral("24")});
    if (!m_tray.waitForStarted()) {
        return false;
    }
    return QTest::qWaitFor([] { return !trayWindows().isEmpty(); }, 10000);
}

QStringList DesktopSession::trayWindows()
{
    return xdotoolSays(
               {QStringLiteral("search"), QStringLiteral("--class"), QStringLiteral("trayer")})
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QStringList DesktopSession::trayIcons() const
{
    // An embedded icon is a named window below one of the tray's own windows, which have
    // none: "0x400006 "Ravelo": ("ravelo" "Ravelo")  22x22+0+0  +1257+1".
    QStringList icons;
    if (m_tray.state() == QProcess::NotRunning) {
        return icons;
    }
    // trayer makes its windows one after the other: ask for them every time.
    for (const QString& trayWindow : trayWindows()) {
        const QString tree = run(QStringLiteral("xwininfo"),
                                 {QStringLiteral("-tree"), QStringLiteral("-id"), trayWindow});
        for (const QString& line : tree.split(QLatin1Char('\n'))) {
            const QString trimmed = line.trimmed();
            if (trimmed.startsWith(QLatin1String("0x")) && trimmed.contains(QLatin1Char('"'))) {
                icons.append(trimmed);
            }
        }
    }
    return icons;
}

bool DesktopSession::copyInOtherApplication(const QString& text)
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard")});
    if (!xclip.waitForStarted()) {
        return false;
    }
    xclip.write(text.toUtf8());
    xclip.closeWriteChannel();
    return xclip.waitForFinished() &&
           QTest::qWaitFor([&] { return QGuiApplication::clipboard()->text() == text; }, 5000);
}

QString DesktopSession::pasteInOtherApplication()
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    if (!QTest::qWaitFor([&] { return xclip.state() == QProcess::NotRunning; }, 5000)) {
        return QStringLiteral("<xclip did not answer>");
    }
    return QString::fromUtf8(xclip.readAllStandardOutput());
}

bool DesktopSession::xdotool(const QStringList& arguments)
{
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

QString DesktopSession::xdotoolSays(const QStringList& arguments)
{
    return run(QStringLiteral("xdotool"), arguments).trimmed();
}

bool DesktopSession::key(const QString& keys)
{
    return xdotool({QStringLiteral("key"), keys});
}

bool DesktopSession::type(const QString& text)
{
    return xdotool({QStringLiteral("type"), text});
}

bool DesktopSession::click(const QQuickItem* item)
{
    if (!item || !item->window()) {
        return false;
    }
    const QPoint at = item->window()->mapToGlobal(
        item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
    return xdotool({QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                    QStringLiteral("click"), QStringLiteral("1")});
}

QQuickItem* DesktopSession::findItemWithText(QQuickItem* root, const QString& text)
{
    if (!root || !root->isVisible()) {
        return nullptr;
    }
    const QVariant value = QQmlProperty::read(root, QStringLiteral("text"));
    if (value.isValid() && value.toString() == text) {
        return root;
    }
    for (QQuickItem* child : root->childItems()) {
        if (QQuickItem* found = findItemWithText(child, text)) {
            return found;
        }
    }
    return nullptr;
}

int DesktopSession::countItems(const QQuickItem* root, const QString& objectName)
{
    int count = root->objectName() == objectName && root->isVisible() ? 1 : 0;
    for (const QQuickItem* child : root->childItems()) {
        count += countItems(child, objectName);
    }
    return count;
}

QList<QQuickItem*> DesktopSession::findItems(QQuickItem* root, const QString& objectName)
{
    QList<QQuickItem*> found;
    if (!root || !root->isVisible()) {
        return found;
    }
    if (root->objectName() == objectName) {
        found.append(root);
    }
    for (QQuickItem* child : root->childItems()) {
        found += findItems(child, objectName);
    }
    std::sort(found.begin(), found.end(), [](const QQuickItem* a, const QQuickItem* b) {
        return a->mapToScene({}).y() < b->mapToScene({}).y();
    });
    return found;
}
