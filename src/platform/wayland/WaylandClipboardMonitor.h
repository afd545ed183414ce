#pragma once

#include "platform/ClipboardOwnerMonitor.h"

#include <QByteArray>
#include <QList>

#include <map>
#include <memory>
#include <vector>

class QSocketNotifier;
class QTimer;
struct DataControlProtocol;
struct wl_display;
struct wl_proxy;

/// The clipboard of a Wayland session that offers data control (KWin, sway and the other
/// wlroots compositors), through a client of its own beside Qt's: core Wayland tells only the
/// focused client about a new selection, and Ravelo's windows seldom have the focus when the
/// user copies. It also reads the copied text, which Qt cannot do from the background.
class WaylandClipboardMonitor : public ClipboardOwnerMonitor {
    Q_OBJECT

public:
    using ClipboardOwnerMonitor::ClipboardOwnerMonitor;
    ~WaylandClipboardMonitor() override;

    /// Whether the compositor of WAYLAND_DISPLAY offers data control.
    static bool isAvailable();

    bool start() override;
    void stop() override;
    bool isActive() const override { return m_watching; }
    bool readsText() const override { return true; }
    void readText(TextCallback done) override;

    /// The longest text read; the rest is dropped.
    static constexpr qint64 maxTextBytes = 64 * 1024 * 1024;

private:
    struct ProxyDeleter {
        std::uint32_t destroyOpcode;
        void operator()(wl_proxy* proxy) const noexcept;
    };
    using Proxy = std::unique_ptr<wl_proxy, ProxyDeleter>;
    struct DisplayDeleter {
        void operator()(wl_display* display) const noexcept;
    };
    struct Offer {
        Proxy proxy;
        QList<QByteArray> mimeTypes;
    };
    struct Read {
        int fd = -1;
        bool latin1 = false;
        QByteArray data;
        TextCallback done;
        QObject* context = nullptr; ///< the read's notifier and timer
    };

    bool connectToCompositor();
    void disconnect();
    void dispatch();
    bool flush();
    void handleGlobal(std::uint32_t name, const char* interface, std::uint32_t version);
    void handleDataOffer(wl_proxy* offer);
    void handleSelection(wl_proxy* offer);
    void handleFinished();
    void dropOffer(wl_proxy* offer);
    void finishRead(Read* read);

    static const struct wl_registry_listener registryListener;
    static const struct DataControlDeviceListener deviceListener;
    static const struct DataControlOfferListener offerListener;

    std::unique_ptr<wl_display, DisplayDeleter> m_display;
    const DataControlProtocol* m_protocol = nullptr;
    std::uint32_t m_managerName = 0;
    std::uint32_t m_managerVersion = 0;
    Proxy m_registry;
    Proxy m_seat;
    Proxy m_manager;
    Proxy m_device;
    std::map<wl_proxy*, Offer> m_offers;
    wl_proxy* m_selection = nullptr;
    QSocketNotifier* m_notifier = nullptr;
    std::vector<std::unique_ptr<Read>> m_reads;
    bool m_watching = false;
};
