#pragma once

#include <wayland-client-core.h>

#include <cstdint>

/// The two data-control protocols a background client reads the clipboard through:
/// wlroots' zwlr_data_control_manager_v1 (sway, Hyprland, KWin before 6.5) and its
/// standardised twin ext_data_control_manager_v1. Both have the same requests and events in
/// the same order, so one client drives either through these interface tables.
struct DataControlProtocol {
    const char* managerName;
    /// The highest version this client speaks.
    std::uint32_t version;
    const wl_interface* manager;
    const wl_interface* device;
    const wl_interface* source;
    const wl_interface* offer;

    // Request opcodes, the same in both.
    static constexpr std::uint32_t managerGetDataDevice = 1;
    static constexpr std::uint32_t managerDestroy = 2;
    static constexpr std::uint32_t deviceDestroy = 1;
    static constexpr std::uint32_t offerReceive = 0;
    static constexpr std::uint32_t offerDestroy = 1;
};

/// Events of a data device, in protocol order.
struct DataControlDeviceListener {
    void (*dataOffer)(void* data, wl_proxy* device, wl_proxy* offer);
    void (*selection)(void* data, wl_proxy* device, wl_proxy* offer);
    void (*finished)(void* data, wl_proxy* device);
    void (*primarySelection)(void* data, wl_proxy* device, wl_proxy* offer);
};

/// Events of an offer: each MIME type it can be read as.
struct DataControlOfferListener {
    void (*offer)(void* data, wl_proxy* offer, const char* mimeType);
};

extern const DataControlProtocol wlrDataControl;
extern const DataControlProtocol extDataControl;
