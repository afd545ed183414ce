#pragma once

#include "model/Prompt.h"

class PreferenceStore;

/// The prompt list under "userPrompts".
namespace PromptStore {

/// The stored list sorted by number (stable), or the defaults when nothing usable is
/// stored. The stored bytes are left as they are either way.
QList<Prompt> load(const PreferenceStore& store);

/// Stores the list; a list that cannot be encoded is not saved.
void save(PreferenceStore& store, const QList<Prompt>& prompts);

} // namespace PromptStore
