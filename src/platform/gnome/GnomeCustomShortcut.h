#pragma once

#include "platform/DesktopShortcut.h"

#include <QPointer>
#include <QProcess>
#include <QTimer>

#include <functional>

/// Ravelo's entry among GNOME's custom keyboard shortcuts (Settings, Keyboard, Custom
/// Shortcuts), written through the `gsettings` program so that the GUI never waits on it:
/// the entry lives at its own path, which is added to or taken out of the list of custom
/// shortcuts while every other entry stays as it is.
class GnomeCustomShortcut : public DesktopShortcut {
    Q_OBJECT

public:
    explicit GnomeCustomShortcut(QObject* parent = nullptr);
    ~GnomeCustomShortcut() override;

    static constexpr const char* listSchema = "org.gnome.settings-daemon.plugins.media-keys";
    static constexpr const char* listKey = "custom-keybindings";
    static constexpr const char* entrySchema =
        "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
    static constexpr const char* entryPath =
        "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/ravelo/";

    /// The keys in GNOME's accelerator syntax: "<Primary><Shift>space", "<Super>c"; empty
    /// for keys without a keysym.
    static QString accelerator(quint32 keyCode, quint32 modifiers);
    /// A command line as GNOME splits it (shell quoting): "'/usr/bin/ravelo' trigger".
    static QString commandLine(const QStringList& command);
    /// A GVariant text literal of a string, and of a list of strings.
    static QString variantString(const QString& text);
    static QString variantStringList(const QStringList& list);
    /// The strings of a GVariant text as `gsettings get` prints it ("@as []", "['a', 'b']").
    static QStringList parseVariantStrings(const QString& text);

    void refresh() override;
    void install(quint32 keyCode, quint32 modifiers, const QStringList& command) override;
    void remove() override;

    bool isBusy() const override { return m_busy; }
    bool isKnown() const override { return m_known; }
    bool isInstalled() const override { return m_installed; }
    bool hasKeys(quint32 keyCode, quint32 modifiers) const override;
    bool runs(const QStringList& command) const override;
    QString errorText() const override { return m_error; }

private:
    using Then = std::function<void(const QString& output)>;

    bool begin();
    void run(const QStringList& arguments, Then then);
    void runAll(QList<QStringList> commands, std::function<void()> then);
    void finish(bool installed, const QString& binding = QString(),
                const QString& commandLine = QString());
    void fail(const QString& message);
    void handleFinished(int exitCode, QProcess::ExitStatus status);

    QPointer<QProcess> m_process;
    Then m_then;
    QTimer m_deadline;
    bool m_busy = false;
    bool m_known = false;
    bool m_installed = false;
    QString m_binding;
    QString m_commandLine;
    QString m_error;
};
