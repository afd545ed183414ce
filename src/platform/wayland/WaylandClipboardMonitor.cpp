#include "platform/wayland/WaylandClipboardMonitor.h"

#include "platform/PlatformLogging.h"
#include "platform/wayland/DataControlProtocol.h"

#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <wayland-client-protocol.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t plainDestroy = std::numeric_limits<std::uint32_t>::max();
// A source that has not sent everything by then is not waited for any longer.
constexpr int readTimeoutMs = 2000;

struct TextType {
    const char* mimeType;
    bool latin1;
};
// In the order they are preferred.
constexpr std::array<TextType, 5> textTypes{{{"text/plain;charset=utf-8", false},
                                             {"UTF8_STRING", false},
                                             {"text/plain", false},
                                             {"TEXT", false},
                                             {"STRING", true}}};

/// The globals a data-control client needs, found by one round trip.
struct Globals {
    std::uint32_t seatName = 0;
    std::uint32_t seatVersion = 0;
    const DataControlProtocol* protocol = nullptr;
    std::uint32_t managerName = 0;
    std::uint32_t managerVersion = 0;

    void note(std::uint32_t name, const char* interface, std::uint32_t version)
    {
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && seatName == 0) {
            seatName = name;
            seatVersion = version;
        } else if (std::strcmp(interface, extDataControl.managerName) == 0) {
            // The standard protocol wins where the compositor offers both.
            protocol = &extDataControl;
            managerName = name;
            managerVersion = version;
        } else if (std::strcmp(interface, wlrDataControl.managerName) == 0 &&
                   protocol != &extDataControl) {
            protocol = &wlrDataControl;
            managerName = name;
            managerVersion = version;
        }
    }
    bool complete() const { return seatName != 0 && protocol != nullptr; }
};

void noteGlobal(void* data, wl_registry*, std::uint32_t name, const char* interface,
                std::uint32_t version)
{
    static_cast<Globals*>(data)->note(name, interface, version);
}

void ignoreGlobalRemoved(void*, wl_registry*, std::uint32_t) {}

const wl_registry_listener probeListener = {noteGlobal, ignoreGlobalRemoved};

} // namespace

void WaylandClipboardMonitor::ProxyDeleter::operator()(wl_proxy* proxy) const noexcept
{
    if (destroyOpcode == plainDestroy) {
        wl_proxy_destroy(proxy);
    } else {
        wl_proxy_marshal_flags(proxy, destroyOpcode, nullptr, wl_proxy_get_version(proxy),
                               WL_MARSHAL_FLAG_DESTROY);
    }
}

void WaylandClipboardMonitor::DisplayDeleter::operator()(wl_display* display) const noexcept
{
    wl_display_disconnect(display);
}

const wl_registry_listener WaylandClipboardMonitor::registryListener = {
    [](void* data, wl_registry*, std::uint32_t name, const char* interface, std::uint32_t version) {
        static_cast<WaylandClipboardMonitor*>(data)->handleGlobal(name, interface, version);
    },
    ignoreGlobalRemoved};

const DataControlDeviceListener WaylandClipboardMonitor::deviceListener = {
    [](void* data, wl_proxy*, wl_proxy* offer) {
        static_cast<WaylandClipboardMonitor*>(data)->handleDataOffer(offer);
    },
    [](void* data, wl_proxy*, wl_proxy* offer) {
        static_cast<WaylandClipboardMonitor*>(data)->handleSelection(offer);
    },
    [](void* data, wl_proxy*) { static_cast<WaylandClipboardMonitor*>(data)->handleFinished(); },
    [](void* data, wl_proxy*, wl_proxy* offer) {
        // The primary selection (what is merely selected) is not the clipboard.
        auto* self = static_cast<WaylandClipboardMonitor*>(data);
        if (offer && offer != self->m_selection) {
            self->dropOffer(offer);
        }
    }};

const DataControlOfferListener WaylandClipboardMonitor::offerListener = {
    [](void* data, wl_proxy* offer, const char* mimeType) {
        auto* self = static_cast<WaylandClipboardMonitor*>(data);
        const auto found = self->m_offers.find(offer);
        if (found != self->m_offers.end() && found->second.mimeTypes.size() < 256) {
            found->second.mimeTypes.append(QByteArray(mimeType));
        }
    }};

WaylandClipboardMonitor::~WaylandClipboardMonitor()
{
    disconnect();
}

bool WaylandClipboardMonitor::isAvailable()
{
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return false;
    }
    std::unique_ptr<wl_display, DisplayDeleter> display(wl_display_connect(nullptr));
    if (!display) {
        return false;
    }
    Globals globals;
    wl_registry* registry = wl_display_get_registry(display.get());
    wl_registry_add_listener(registry, &probeListener, &globals);
    const bool answered = wl_display_roundtrip(display.get()) >= 0;
    wl_registry_destroy(registry);
    return answered && globals.complete();
}

bool WaylandClipboardMonitor::start()
{
    if (!m_display && !connectToCompositor()) {
        return false;
    }
    if (!m_watching) {
        m_watching = true;
        qCDebug(lcPlatform, "Watching the Wayland clipboard through %s", m_protocol->managerName);
    }
    return true;
}

void WaylandClipboardMonitor::stop()
{
    // The connection stays: the hotkey and "ravelo trigger" still read the copied text
    // through it.
    m_watching = false;
}

bool WaylandClipboardMonitor::connectToCompositor()
{
    m_display.reset(wl_display_connect(nullptr));
    if (!m_display) {
        qCDebug(lcPlatform, "No Wayland compositor to read the clipboard from");
        return false;
    }
    wl_display* display = m_display.get();
    m_registry = Proxy(reinterpret_cast<wl_proxy*>(wl_display_get_registry(display)),
                       ProxyDeleter{plainDestroy});
    wl_registry_add_listener(reinterpret_cast<wl_registry*>(m_registry.get()), &registryListener,
                             this);
    if (wl_display_roundtrip(display) < 0 || !m_seat || !m_manager) {
        qCDebug(lcPlatform, "The Wayland compositor offers no data control");
        disconnect();
        return false;
    }
    m_device =
        Proxy(wl_proxy_marshal_flags(m_manager.get(), DataControlProtocol::managerGetDataDevice,
                                     m_protocol->device, wl_proxy_get_version(m_manager.get()), 0,
                                     nullptr, m_seat.get()),
              ProxyDeleter{DataControlProtocol::deviceDestroy});
    wl_proxy_add_listener(
        m_device.get(),
        reinterpret_cast<void (**)(void)>(const_cast<DataControlDeviceListener*>(&deviceListener)),
        this);
    // The current selection arrives first; it is no copy of the user's.
    if (wl_display_roundtrip(display) < 0) {
        disconnect();
        return false;
    }
    m_notifier = new QSocketNotifier(wl_display_get_fd(display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &WaylandClipboardMonitor::dispatch);
    return true;
}

void WaylandClipboardMonitor::disconnect()
{
    m_watching = false;
    delete m_notifier;
    m_notifier = nullptr;
    for (const std::unique_ptr<Read>& read : m_reads) {
        delete read->context;
        ::close(read->fd);
    }
    m_reads.clear();
    m_selection = nullptr;
    m_offers.clear();
    m_device.reset();
    m_manager.reset();
    m_seat.reset();
    m_registry.reset();
    m_display.reset();
}

void WaylandClipboardMonitor::handleGlobal(std::uint32_t name, const char* interface,
                                           std::uint32_t version)
{
    Globals globals;
    globals.note(name, interface, version);
    wl_registry* registry = reinterpret_cast<wl_registry*>(m_registry.get());
    if (globals.seatName != 0 && !m_seat) {
        m_seat =
            Proxy(static_cast<wl_proxy*>(wl_registry_bind(registry, name, &wl_seat_interface, 1)),
                  ProxyDeleter{plainDestroy});
    } else if (globals.protocol && (!m_manager || (globals.protocol == &extDataControl &&
                                                   m_protocol != &extDataControl))) {
        m_manager.reset();
        m_protocol = globals.protocol;
        m_manager =
            Proxy(static_cast<wl_proxy*>(wl_registry_bind(registry, name, m_protocol->manager,
                                                          std::min(version, m_protocol->version))),
                  ProxyDeleter{DataControlProtocol::managerDestroy});
    }
}

void WaylandClipboardMonitor::dispatch()
{
    wl_display* display = m_display.get();
    if (wl_display_prepare_read(display) == 0 && wl_display_read_events(display) < 0) {
        qCWarning(lcPlatform, "Lost the Wayland connection that reads the clipboard: %s",
                  std::strerror(errno));
        disconnect();
        return;
    }
    if (wl_display_dispatch_pending(display) < 0 || !flush()) {
        qCWarning(lcPlatform, "Lost the Wayland connection that reads the clipboard");
        disconnect();
    }
}

bool WaylandClipboardMonitor::flush()
{
    return wl_display_flush(m_display.get()) >= 0 || errno == EAGAIN;
}

void WaylandClipboardMonitor::handleDataOffer(wl_proxy* offer)
{
    Offer& entry = m_offers[offer];
    entry.proxy = Proxy(offer, ProxyDeleter{DataControlProtocol::offerDestroy});
    wl_proxy_add_listener(
        offer,
        reinterpret_cast<void (**)(void)>(const_cast<DataControlOfferListener*>(&offerListener)),
        this);
}

void WaylandClipboardMonitor::handleSelection(wl_proxy* offer)
{
    wl_proxy* previous = m_selection;
    m_selection = offer;
    if (previous && previous != offer) {
        dropOffer(previous);
    }
    if (!m_watching) {
        return;
    }
    // Reported from the event loop, never from inside the Wayland dispatch.
    QMetaObject::invokeMethod(
        this,
        [self = QPointer<WaylandClipboardMonitor>(this), owner = quint64(offer ? 1 : 0)] {
            if (self && self->m_watching) {
                emit self->ownerChanged(owner);
            }
        },
        Qt::QueuedConnection);
}

void WaylandClipboardMonitor::handleFinished()
{
    qCWarning(lcPlatform, "The compositor ended Ravelo's clipboard access");
    for (auto& [proxy, offer] : m_offers) {
        Q_UNUSED(proxy)
        offer.proxy.reset();
    }
    m_offers.clear();
    m_selection = nullptr;
    m_device.reset();
    m_watching = false;
}

void WaylandClipboardMonitor::dropOffer(wl_proxy* offer)
{
    m_offers.erase(offer);
}

void WaylandClipboardMonitor::readText(TextCallback done)
{
    const auto answer = [this, &done](const QString& text) {
        QMetaObject::invokeMethod(
            this, [done = std::move(done), text] { done(text); }, Qt::QueuedConnection);
    };
    if (!m_display && !connectToCompositor()) {
        answer(QString());
        return;
    }
    const auto found = m_selection ? m_offers.find(m_selection) : m_offers.end();
    if (found == m_offers.end()) {
        answer(QString());
        return;
    }
    const TextType* type = nullptr;
    for (const TextType& candidate : textTypes) {
        if (found->second.mimeTypes.contains(QByteArray(candidate.mimeType))) {
            type = &candidate;
            break;
        }
    }
    int fds[2] = {-1, -1};
    if (!type || ::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        answer(QString());
        return;
    }
    wl_proxy_marshal_flags(m_selection, DataControlProtocol::offerReceive, nullptr,
                           wl_proxy_get_version(m_selection), 0, type->mimeType, fds[1]);
    flush();
    ::close(fds[1]);

    auto read = std::make_unique<Read>();
    Read* current = read.get();
    current->fd = fds[0];
    current->latin1 = type->latin1;
    current->done = std::move(done);
    current->context = new QObject(this);
    auto* notifier = new QSocketNotifier(fds[0], QSocketNotifier::Read, current->context);
    auto* timeout = new QTimer(current->context);
    timeout->setSingleShot(true);
    connect(timeout, &QTimer::timeout, current->context, [this, current] {
        qCDebug(lcPlatform, "The clipboard's owner did not send its text in time");
        finishRead(current);
    });
    connect(notifier, &QSocketNotifier::activated, current->context, [this, current] {
        char buffer[65536];
        for (;;) {
            const ssize_t count = ::read(current->fd, buffer, sizeof buffer);
            if (count > 0) {
                const qint64 room = maxTextBytes - current->data.size();
                current->data.append(buffer, qsizetype(std::min<qint64>(count, room)));
                if (count >= room) {
                    finishRead(current);
                    return;
                }
                continue;
            }
            if (count < 0 && (errno == EINTR)) {
                continue;
            }
            if (count < 0 && errno == EAGAIN) {
                return;
            }
            finishRead(current);
            return;
        }
    });
    timeout->start(readTimeoutMs);
    m_reads.push_back(std::move(read));
}

void WaylandClipboardMonitor::finishRead(Read* read)
{
    const auto found =
        std::find_if(m_reads.begin(), m_reads.end(),
                     [read](const std::unique_ptr<Read>& r) { return r.get() == read; });
    if (found == m_reads.end()) {
        return;
    }
    std::unique_ptr<Read> finished = std::move(*found);
    m_reads.erase(found);
    // The descriptor is closed: its notifier must not look at it again.
    for (QSocketNotifier* notifier : finished->context->findChildren<QSocketNotifier*>()) {
        notifier->setEnabled(false);
    }
    for (QTimer* timer : finished->context->findChildren<QTimer*>()) {
        timer->stop();
    }
    ::close(finished->fd);
    finished->context->deleteLater();
    const QString text =
        finished->latin1 ? QString::fromLatin1(finished->data) : QString::fromUtf8(finished->data);
    finished->done(text);
}
