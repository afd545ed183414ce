#include "model/PromptStore.h"

#include "model/PreferenceStore.h"

#include <QLoggingCategory>

#include <algorithm>

Q_DECLARE_LOGGING_CATEGORY(lcPreferences)

QList<Prompt> PromptStore::load(const PreferenceStore& store)
{
    const std::optional<QByteArray> bytes = store.data(Preferences::userPrompts);
    if (!bytes) {
        return Prompt::defaults();
    }
    std::optional<QList<Prompt>> prompts = Prompt::decodeList(*bytes);
    if (!prompts) {
        qCWarning(lcPreferences) << "The stored prompt list cannot be read; using the defaults"
                                 << "and keeping the stored text until the list is saved again";
        return Prompt::defaults();
    }
    if (prompts->isEmpty()) {
        return Prompt::defaults();
    }
    std::stable_sort(prompts->begin(), prompts->end(),
                     [](const Prompt& a, const Prompt& b) { return a.number < b.number; });
    return *prompts;
}

void PromptStore::save(PreferenceStore& store, const QList<Prompt>& prompts)
{
    const QByteArray bytes = Prompt::encodeList(prompts);
    if (bytes.isEmpty()) {
        qCWarning(lcPreferences) << "The prompt list holds text that cannot be stored; not saved";
        return;
    }
    store.setData(Preferences::userPrompts, bytes);
}
