#pragma once

#include <QObject>

#include <memory>

class QDBusServiceWatcher;
class X11TraySelection;

/// Whether the desktop has a tray to show Ravelo's icon: a StatusNotifierItem host on the
/// session bus, or an XEmbed system tray on the X server. Qt decides once per process, at the
/// first use of a tray icon, which of the two it talks to, so the icon is best made only once
/// one of them exists; this tells when. Waiting costs nothing: it listens, never polls.
class TrayWatcher : public QObject {
    Q_OBJECT

public:
    explicit TrayWatcher(QObject* parent = nullptr);
    ~TrayWatcher() override;

    bool trayExists() const { return m_trayExists; }

signals:
    /// Once, when the first tray of either kind appears after construction.
    void trayAppeared();

private slots:
    void onStatusNotifierHostRegistered();

private:
    void watchSessionBus();
    void askWhetherHostIsRegistered();
    void setTrayExists();

    bool m_trayExists = false;
    std::unique_ptr<X11TraySelection> m_traySelection;
    QDBusServiceWatcher* m_serviceWatcher = nullptr;
};
