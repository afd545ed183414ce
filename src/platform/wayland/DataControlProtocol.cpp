#include "platform/wayland/DataControlProtocol.h"

#include <wayland-client-protocol.h>

// Message signatures: n new object, o object (? may be null), s string, h file descriptor; a
// leading number is the version that added the message. `types` names the interface of each
// object argument.
#define RAVELO_DATA_CONTROL_FAMILY(prefix, base, version, primarySince)                            \
    namespace prefix {                                                                             \
    extern const wl_interface manager;                                                             \
    extern const wl_interface device;                                                              \
    extern const wl_interface source;                                                              \
    extern const wl_interface offer;                                                               \
                                                                                                   \
    const wl_interface* createSourceTypes[] = {&source};                                           \
    const wl_interface* getDeviceTypes[] = {&device, &wl_seat_interface};                          \
    const wl_interface* sourceTypes[] = {&source};                                                 \
    const wl_interface* offerTypes[] = {&offer};                                                   \
    const wl_interface* noTypes[] = {nullptr, nullptr};                                            \
                                                                                                   \
    const wl_message managerRequests[] = {                                                         \
        {"create_data_source", "n", createSourceTypes},                                            \
        {"get_data_device", "no", getDeviceTypes},                                                 \
        {"destroy", "", noTypes},                                                                  \
    };                                                                                             \
    const wl_message deviceRequests[] = {                                                          \
        {"set_selection", "?o", sourceTypes},                                                      \
        {"destroy", "", noTypes},                                                                  \
        {"set_primary_selection", primarySince "?o", sourceTypes},                                 \
    };                                                                                             \
    const wl_message deviceEvents[] = {                                                            \
        {"data_offer", "n", offerTypes},                                                           \
        {"selection", "?o", offerTypes},                                                           \
        {"finished", "", noTypes},                                                                 \
        {"primary_selection", primarySince "?o", offerTypes},                                      \
    };                                                                                             \
    const wl_message sourceRequests[] = {                                                          \
        {"offer", "s", noTypes},                                                                   \
        {"destroy", "", noTypes},                                                                  \
    };                                                                                             \
    const wl_message sourceEvents[] = {                                                            \
        {"send", "sh", noTypes},                                                                   \
        {"cancelled", "", noTypes},                                                                \
    };                                                                                             \
    const wl_message offerRequests[] = {                                                           \
        {"receive", "sh", noTypes},                                                                \
        {"destroy", "", noTypes},                                                                  \
    };                                                                                             \
    const wl_message offerEvents[] = {                                                             \
        {"offer", "s", noTypes},                                                                   \
    };                                                                                             \
                                                                                                   \
    const wl_interface manager = {base "_manager_v1", version, 3, managerRequests, 0, nullptr};    \
    const wl_interface device = {base "_device_v1", version, 3, deviceRequests, 4, deviceEvents};  \
    const wl_interface source = {base "_source_v1", version, 2, sourceRequests, 2, sourceEvents};  \
    const wl_interface offer = {base "_offer_v1", version, 2, offerRequests, 1, offerEvents};      \
    }

RAVELO_DATA_CONTROL_FAMILY(wlr, "zwlr_data_control", 2, "2")
RAVELO_DATA_CONTROL_FAMILY(ext, "ext_data_control", 1, "")

// primary_selection came with version 2 of the wlroots protocol and is in version 1 of ext;
// this client binds version 1 of the wlroots one and never sees it there.
const DataControlProtocol wlrDataControl = {
    "zwlr_data_control_manager_v1", 1, &wlr::manager, &wlr::device, &wlr::source, &wlr::offer};
const DataControlProtocol extDataControl = {
    "ext_data_control_manager_v1", 1, &ext::manager, &ext::device, &ext::source, &ext::offer};
