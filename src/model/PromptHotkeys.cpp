#include "model/PromptHotkeys.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString keyCodeName = QStringLiteral("keycode");
const QString modifiersName = QStringLiteral("modifiers");

} // namespace

PromptHotkeys::Map PromptHotkeys::decode(const QByteArray& json)
{
    Map hotkeys;
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) {
        return hotkeys;
    }
    const QJsonObject object = document.object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QUuid id(it.key());
        const QJsonObject entry = it.value().toObject();
        if (id.isNull()) {
            continue;
        }
        // Whole numbers only: -1 is no value the recorder writes.
        const std::optional<StoredHotkey> hotkey = PreferenceStore::hotkeyFromStored(
            entry.value(keyCodeName).toInteger(-1), entry.value(modifiersName).toInteger(-1));
        if (hotkey) {
            hotkeys.insert(id, *hotkey);
        }
    }
    return hotkeys;
}

QByteArray PromptHotkeys::encode(const Map& hotkeys)
{
    QJsonObject object;
    for (auto it = hotkeys.constBegin(); it != hotkeys.constEnd(); ++it) {
        object.insert(it.key().toString(QUuid::WithoutBraces).toUpper(),
                      QJsonObject{{keyCodeName, qint64(it->keyCode)},
                                  {modifiersName, qint64(it->modifiers)}});
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

PromptHotkeys::Map PromptHotkeys::load(const PreferenceStore& store)
{
    const std::optional<QByteArray> bytes = store.data(Preferences::promptHotkeys);
    return bytes ? decode(*bytes) : Map();
}

void PromptHotkeys::save(PreferenceStore& store, const Map& hotkeys)
{
    const QByteArray bytes = encode(hotkeys);
    if (store.data(Preferences::promptHotkeys) == bytes) {
        return;
    }
    store.setData(Preferences::promptHotkeys, bytes);
}
