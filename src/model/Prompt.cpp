#include "model/Prompt.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>

#include <cmath>

namespace {

bool sameText(const QString& a, const QString& b)
{
    if (a == b) {
        return true;
    }
    return a.normalized(QString::NormalizationForm_C) == b.normalized(QString::NormalizationForm_C);
}

bool hasUnpairedSurrogate(const QString& text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate()) {
            if (i + 1 >= text.size() || !text.at(i + 1).isLowSurrogate()) {
                return true;
            }
            ++i;
        } else if (c.isLowSurrogate()) {
            return true;
        }
    }
    return false;
}

// JSON string escaping: quotes, backslashes and control characters; everything else is
// written as UTF-8.
void appendJsonString(QByteArray& out, const QString& text)
{
    static constexpr char hex[] = "0123456789abcdef";
    out.append('"');
    const QByteArray utf8 = text.toUtf8();
    for (const char ch : utf8) {
        const auto byte = static_cast<unsigned char>(ch);
        switch (byte) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        default:
            if (byte < 0x20) {
                out.append("\\u00");
                out.append(hex[byte >> 4]);
                out.append(hex[byte & 0xf]);
            } else {
                out.append(ch);
            }
        }
    }
    out.append('"');
}

bool isHexDigit(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'0' && u <= u'9') || (u >= u'a' && u <= u'f') || (u >= u'A' && u <= u'F');
}

bool isCanonicalUuidText(const QString& text)
{
    if (text.size() != 36) {
        return false;
    }
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != QLatin1Char('-')) {
                return false;
            }
        } else if (!isHexDigit(c)) {
            return false;
        }
    }
    return true;
}

std::optional<qint64> integerValue(const QJsonValue& value)
{
    if (!value.isDouble()) {
        return std::nullopt;
    }
    const QVariant variant = value.toVariant();
    if (variant.typeId() == QMetaType::LongLong) {
        return variant.toLongLong();
    }
    // A number written with a fraction or exponent still counts when it is whole.
    const double number = value.toDouble();
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (std::isfinite(number) && std::trunc(number) == number && number >= -limit &&
        number < limit) {
        return static_cast<qint64>(number);
    }
    return std::nullopt;
}

std::optional<Prompt> promptFromJson(const QJsonValue& value)
{
    if (!value.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    const QJsonValue id = object.value(QLatin1String("id"));
    const QJsonValue title = object.value(QLatin1String("title"));
    const QJsonValue systemPrompt = object.value(QLatin1String("systemPrompt"));
    const std::optional<qint64> number = integerValue(object.value(QLatin1String("number")));
    if (!id.isString() || !title.isString() || !systemPrompt.isString() || !number) {
        return std::nullopt;
    }
    const QString idText = id.toString();
    if (!isCanonicalUuidText(idText)) {
        return std::nullopt;
    }
    Prompt prompt;
    prompt.id = QUuid::fromString(idText);
    prompt.number = *number;
    prompt.title = title.toString();
    prompt.systemPrompt = systemPrompt.toString();
    return prompt;
}

} // namespace

Prompt Prompt::create(qint64 number, const QString& title, const QString& systemPrompt)
{
    return Prompt{QUuid::createUuid(), number, title, systemPrompt};
}

const QList<Prompt>& Prompt::defaults()
{
    static const QList<Prompt> set{
        create(1, QStringLiteral("Translate"),
               QStringLiteral("Translate the following text into German. Only return the "
                              "translated text, nothing else.")),
        create(2, QStringLiteral("Fix"),
               QStringLiteral("Fix the grammar and spelling in the following text. Return the "
                              "corrected text first, then on a new line explain what was changed "
                              "and why.")),
        create(3, QStringLiteral("English word for"),
               QStringLiteral("What is the English word or phrase for the following? Provide the "
                              "best English translation and a brief explanation.")),
    };
    return set;
}

QString Prompt::idText() const
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QByteArray Prompt::toJson() const
{
    if (hasUnpairedSurrogate(title) || hasUnpairedSurrogate(systemPrompt)) {
        return {};
    }
    QByteArray out;
    out.reserve(64 + (title.size() + systemPrompt.size()) * 3 / 2);
    out.append("{\"id\":\"");
    out.append(idText().toLatin1());
    out.append("\",\"number\":");
    out.append(QByteArray::number(number));
    out.append(",\"title\":");
    appendJsonString(out, title);
    out.append(",\"systemPrompt\":");
    appendJsonString(out, systemPrompt);
    out.append('}');
    return out;
}

QByteArray Prompt::encodeList(const QList<Prompt>& prompts)
{
    QByteArray out("[");
    for (qsizetype i = 0; i < prompts.size(); ++i) {
        const QByteArray element = prompts.at(i).toJson();
        if (element.isEmpty()) {
            return {};
        }
        if (i > 0) {
            out.append(',');
        }
        out.append(element);
    }
    out.append(']');
    return out;
}

std::optional<QList<Prompt>> Prompt::decodeList(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    const QJsonArray array = document.array();
    QList<Prompt> prompts;
    prompts.reserve(array.size());
    for (const QJsonValue& value : array) {
        std::optional<Prompt> prompt = promptFromJson(value);
        if (!prompt) {
            return std::nullopt;
        }
        prompts.append(std::move(*prompt));
    }
    return prompts;
}

bool operator==(const Prompt& a, const Prompt& b)
{
    return a.id == b.id && a.number == b.number && sameText(a.title, b.title) &&
           sameText(a.systemPrompt, b.systemPrompt);
}

size_t qHash(const Prompt& prompt, size_t seed) noexcept
{
    return qHashMulti(seed, prompt.id, prompt.number,
                      prompt.title.normalized(QString::NormalizationForm_C),
                      prompt.systemPrompt.normalized(QString::NormalizationForm_C));
}
