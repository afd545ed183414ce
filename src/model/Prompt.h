#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUuid>
#include <QtQmlIntegration/qqmlintegration.h>

#include <optional>

/// One quick action: the number it is offered under, a short title and the system
/// prompt sent with the copied text.
class Prompt {
    Q_GADGET
    QML_VALUE_TYPE(prompt)
    Q_PROPERTY(QString id READ idText CONSTANT)
    Q_PROPERTY(qint64 number MEMBER number)
    Q_PROPERTY(QString title MEMBER title)
    Q_PROPERTY(QString systemPrompt MEMBER systemPrompt)

public:
    QUuid id;
    qint64 number = 0;
    QString title;
    QString systemPrompt;

    /// A prompt with a fresh random id.
    static Prompt create(qint64 number, const QString& title, const QString& systemPrompt);

    /// The three built-in prompts. Built once per process: every call returns the same ids.
    static const QList<Prompt>& defaults();

    /// The id as stored: 36 characters, upper case.
    QString idText() const;

    /// One prompt as a compact JSON object, members in the order id, number, title,
    /// systemPrompt. Empty when a text holds an unpaired surrogate (nothing valid to write).
    QByteArray toJson() const;

    static QByteArray encodeList(const QList<Prompt>& prompts);
    /// The stored list, or nothing when any element is unreadable.
    static std::optional<QList<Prompt>> decodeList(const QByteArray& json);

    /// Equal when all four fields are; texts compare by canonical equivalence.
    friend bool operator==(const Prompt& a, const Prompt& b);
};

size_t qHash(const Prompt& prompt, size_t seed = 0) noexcept;

Q_DECLARE_METATYPE(Prompt)
