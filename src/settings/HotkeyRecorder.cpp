#include "settings/HotkeyRecorder.h"

#include "platform/KeyMap.h"
#include "settings/HotkeyRecording.h"

#include <QKeyEvent>

namespace {

constexpr Qt::KeyboardModifiers recordedModifiers =
    Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier;

} // namespace

HotkeyRecorder::HotkeyRecorder(QQuickItem* parent)
    : QQuickItem(parent)
{
    setFlag(ItemAcceptsInputMethod, false);
    setActiveFocusOnTab(false);
}

HotkeyRecorder::~HotkeyRecorder()
{
    HotkeyRecording::instance()->setRecorderActive(this, false);
}

void HotkeyRecorder::setRecording(bool recording)
{
    if (m_recording == recording) {
        return;
    }
    m_recording = recording;
    if (m_recording) {
        forceActiveFocus(Qt::OtherFocusReason);
    }
    updateRecordingFlag();
    emit recordingChanged();
}

bool HotkeyRecorder::event(QEvent* event)
{
    // While recording, combinations that are shortcuts elsewhere in the window belong here.
    if (event->type() == QEvent::ShortcutOverride && m_recording) {
        event->accept();
        return true;
    }
    return QQuickItem::event(event);
}

void HotkeyRecorder::keyPressEvent(QKeyEvent* event)
{
    if (!m_recording) {
        event->ignore();
        return;
    }
    event->accept();
    if ((event->modifiers() & recordedModifiers) == 0) {
        return;
    }
    if (const auto stored = KeyMap::storedForQt(event->key(), event->modifiers())) {
        emit recorded(stored->keyCode, stored->modifiers);
    }
}

void HotkeyRecorder::itemChange(ItemChange change, const ItemChangeData& value)
{
    if (change == ItemActiveFocusHasChanged) {
        updateRecordingFlag();
    }
    QQuickItem::itemChange(change, value);
}

void HotkeyRecorder::updateRecordingFlag()
{
    HotkeyRecording::instance()->setRecorderActive(this, m_recording && hasActiveFocus());
}
