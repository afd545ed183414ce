#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

/// Whether Ravelo starts at login: the presence of ravelo.desktop in the user's autostart
/// folder ($XDG_CONFIG_HOME/autostart, else ~/.config/autostart). Writing `enabled` creates
/// or removes that entry; nothing goes to the preference store. A failed write leaves
/// `enabled` as it was and explains itself in `error`.
class AutostartEntry : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(QString path READ path CONSTANT)

public:
    explicit AutostartEntry(QObject* parent = nullptr);

    bool enabled() const { return m_enabled; }
    void setEnabled(bool enabled);
    /// Empty after a successful write or refresh.
    QString error() const { return m_error; }
    QString path() const { return m_path; }

    /// Reads again whether the entry is there, for changes made outside Ravelo.
    Q_INVOKABLE void refresh();

    /// The executable the entry starts; the `ravelo` command that started this process
    /// unless set otherwise.
    void setProgramPath(const QString& programPath) { m_programPath = programPath; }

    static QString entryPath();
    /// "ravelo" when that name on PATH is `programPath` itself, else `programPath`,
    /// quoted as a desktop entry's Exec key needs it.
    static QString execLine(const QString& programPath);
    /// Whether an entry with this text starts anything: desktops skip hidden entries and
    /// those GNOME's own switch turned off.
    static bool entryIsActive(const QByteArray& contents);

signals:
    void enabledChanged();
    void errorChanged();

private:
    bool writeEntry();
    bool removeEntry();
    void setError(const QString& error);
    void setEnabledState(bool enabled);

    QString m_path;
    QString m_programPath;
    QString m_error;
    bool m_enabled = false;
};
