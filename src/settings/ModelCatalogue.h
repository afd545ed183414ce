#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QJSEngine;

/// One offered model. The prices are display texts in US dollars per 1M tokens.
class ModelInfo {
    Q_GADGET
    QML_VALUE_TYPE(modelInfo)
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString name MEMBER name CONSTANT)
    Q_PROPERTY(QString inputPrice MEMBER inputPrice CONSTANT)
    Q_PROPERTY(QString outputPrice MEMBER outputPrice CONSTANT)
    Q_PROPERTY(QString note READ translatedNote CONSTANT)

public:
    QString id;
    QString name;
    QString inputPrice;
    QString outputPrice;
    QString note;

    /// `note` in the user's language.
    QString translatedNote() const;

    /// The picker's text: "GPT-4o Mini  —  $0.15 in / $0.60 out".
    Q_INVOKABLE QString entryText() const;

    friend bool operator==(const ModelInfo&, const ModelInfo&) = default;
};

/// The models the General tab offers, in picker order.
class ModelCatalogue : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QList<ModelInfo> models READ models CONSTANT)
    Q_PROPERTY(QString defaultModel READ defaultModel CONSTANT)
    Q_PROPERTY(QString apiKeyPage READ apiKeyPage CONSTANT)
    Q_PROPERTY(QString apiKeyHost READ apiKeyHost CONSTANT)

public:
    using QObject::QObject;

    static const QList<ModelInfo>& models();
    static QString defaultModel();
    /// Where the provider's users create API keys, and the host name shown for it.
    static QString apiKeyPage();
    static QString apiKeyHost();

    /// The position of the first row with exactly this id, or -1.
    Q_INVOKABLE static int indexOf(const QString& id);
};
