#pragma once

#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

class QQuickItem;

/// What a user's desktop gives the tests that drive Ravelo from outside: a window manager
/// (openbox), other applications copying and pasting (xclip) and keys and clicks typed
/// through XTest (xdotool). Needs the X server the test runs on.
class DesktopSession {
public:
    DesktopSession() = default;
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    /// Starts openbox and waits until it manages the screen; false when a tool is missing.
    bool startWindowManager();
    /// Stops the window manager where it is (SIGSTOP), as if it were too busy to map or
    /// focus anything, or lets it go on; false when none runs.
    bool pauseWindowManager(bool paused);

    /// Starts a tray (trayer, an XEmbed system tray) and waits for its windows; false when
    /// trayer is missing or shows none. Once is enough.
    bool startTray();
    /// The icons embedded in the tray, one xwininfo line each; empty before startTray().
    QStringList trayIcons() const;

    /// Another application copies `text` and keeps serving it; true once Ravelo's process
    /// sees it on its clipboard.
    static bool copyInOtherApplication(const QString& text);
    /// What another application pastes. Keeps this process's event loop turning, since
    /// after a copy this process owns the clipboard.
    static QString pasteInOtherApplication();

    /// `xdotool ARGS...`; true when it succeeded.
    static bool xdotool(const QStringList& arguments);
    /// What `xdotool ARGS...` prints, trimmed; empty when it fails or finds nothing.
    static QString xdotoolSays(const QStringList& arguments);
    static bool key(const QString& keys);
    static bool type(const QString& text);
    /// A real click in the middle of the item.
    static bool click(const QQuickItem* item);

    /// The first visible item below `root` whose "text" property reads `text`.
    static QQuickItem* findItemWithText(QQuickItem* root, const QString& text);
    /// The visible items below `root` with that object name, top to bottom.
    static QList<QQuickItem*> findItems(QQuickItem* root, const QString& objectName);
    /// How many visible items below `root` have that object name.
    static int countItems(const QQuickItem* root, const QString& objectName);

private:
    static QStringList trayWindows();

    QProcess m_windowManager;
    QProcess m_tray;
};
