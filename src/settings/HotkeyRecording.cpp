#include "settings/HotkeyRecording.h"

HotkeyRecording* HotkeyRecording::instance()
{
    static HotkeyRecording* recording = new HotkeyRecording;
    return recording;
}

void HotkeyRecording::setRecorderActive(const void* recorder, bool active)
{
    const bool before = isActive();
    if (active) {
        m_recorders.insert(recorder);
    } else {
        m_recorders.remove(recorder);
    }
    if (before != isActive()) {
        emit activeChanged(isActive());
    }
}
