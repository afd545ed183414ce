#include "settings/HotkeyConflict.h"

#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "platform/KeyMap.h"

#include <QCoreApplication>

namespace {

QString promptConflict(const PreferenceStore& store, StoredHotkey hotkey, const QUuid& except)
{
    const PromptHotkeys::Map hotkeys = PromptHotkeys::load(store);
    const QList<Prompt> prompts = PromptStore::load(store);
    for (const Prompt& prompt : prompts) {
        if (prompt.id != except && hotkeys.value(prompt.id, StoredHotkey{0, 0}) == hotkey) {
            return QCoreApplication::translate("HotkeyConflict", "%1 already runs \u201c%2\u201d.")
                .arg(KeyMap::displayText(hotkey.keyCode, hotkey.modifiers), prompt.title);
        }
    }
    return QString();
}

} // namespace

QString HotkeyConflict::forTrigger(const PreferenceStore& store, StoredHotkey hotkey)
{
    return promptConflict(store, hotkey, QUuid());
}

QString HotkeyConflict::forPrompt(const PreferenceStore& store, StoredHotkey hotkey,
                                  const QUuid& promptId)
{
    if (store.customHotkey() == hotkey) {
        return QCoreApplication::translate("HotkeyConflict", "%1 already opens the panel.")
            .arg(KeyMap::displayText(hotkey.keyCode, hotkey.modifiers));
    }
    return promptConflict(store, hotkey, promptId);
}
