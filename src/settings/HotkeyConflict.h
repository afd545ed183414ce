#pragma once

#include "model/PreferenceStore.h"

#include <QString>
#include <QUuid>

/// Whether a recorded combination is free: the panel trigger and every prompt each need
/// keys of their own. Each answers with the message to show, or empty when it is free.
namespace HotkeyConflict {

/// For the panel trigger: the combination of a prompt in the stored list is taken.
QString forTrigger(const PreferenceStore& store, StoredHotkey hotkey);
/// For the prompt with that id: the trigger's and every other stored prompt's are taken.
QString forPrompt(const PreferenceStore& store, StoredHotkey hotkey, const QUuid& promptId);

} // namespace HotkeyConflict
