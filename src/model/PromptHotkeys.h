#pragma once

#include "model/PreferenceStore.h"

#include <QByteArray>
#include <QMap>
#include <QUuid>

/// The prompts' own global hotkeys under "prompt_hotkeys", by prompt id.
namespace PromptHotkeys {

using Map = QMap<QUuid, StoredHotkey>;

/// Every readable entry; a value that is no JSON object gives none, and an entry whose id
/// or combination the recorder could not have written is left out.
Map decode(const QByteArray& json);
QByteArray encode(const Map& hotkeys);

Map load(const PreferenceStore& store);
/// Stores the map unless the store holds exactly these hotkeys already.
void save(PreferenceStore& store, const Map& hotkeys);

} // namespace PromptHotkeys
