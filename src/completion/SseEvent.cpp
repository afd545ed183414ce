#include "completion/SseEvent.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

SseEvent SseEvent::decode(QByteArrayView line)
{
    constexpr QByteArrayView prefix("data: ");
    if (!line.startsWith(prefix)) {
        return {};
    }
    QByteArrayView payload = line.sliced(prefix.size());
    if (payload == QByteArrayView("[DONE]")) {
        return {Kind::Done, {}};
    }

    // Lines are text: bytes that are not UTF-8 read as replacement characters, as any
    // other text would.
    QByteArray json;
    if (payload.isValidUtf8()) {
        json = QByteArray::fromRawData(payload.data(), payload.size());
    } else {
        json = QString::fromUtf8(payload).toUtf8();
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        return {};
    }
    const QJsonValue choices = document.object().value(QLatin1String("choices"));
    if (!choices.isArray()) {
        return {};
    }
    const QJsonArray list = choices.toArray();
    if (list.isEmpty()) {
        return {};
    }
    for (const QJsonValue& choice : list) {
        if (!choice.isObject()) {
            return {};
        }
    }
    const QJsonValue delta = list.first().toObject().value(QLatin1String("delta"));
    if (!delta.isObject()) {
        return {};
    }
    const QJsonValue content = delta.toObject().value(QLatin1String("content"));
    if (!content.isString()) {
        return {};
    }
    return {Kind::Fragment, content.toString()};
}
