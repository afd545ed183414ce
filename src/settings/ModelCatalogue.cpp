#include "settings/ModelCatalogue.h"

#include <QCoreApplication>
#include <QUrl>

using namespace Qt::StringLiterals;

QString ModelInfo::entryText() const
{
    return QCoreApplication::translate("ModelCatalogue", "%1  \u2014  %2 in / %3 out")
        .arg(name, inputPrice, outputPrice);
}

QString ModelInfo::translatedNote() const
{
    return QCoreApplication::translate("ModelCatalogue", note.toUtf8().constData());
}

const QList<ModelInfo>& ModelCatalogue::models()
{
    static const QList<ModelInfo> catalogue{
        {u"gpt-4.1-nano"_s, u"GPT-4.1 Nano"_s, u"$0.10"_s, u"$0.40"_s,
         QStringLiteral(QT_TRANSLATE_NOOP(
             "ModelCatalogue",
             "Cheapest. Great for simple tasks like translation and grammar fixes."))},
        {u"gpt-4o-mini"_s, u"GPT-4o Mini"_s, u"$0.15"_s, u"$0.60"_s,
         QStringLiteral(QT_TRANSLATE_NOOP("ModelCatalogue",
                                          "Very affordable. Good balance of speed and quality."))},
        {u"gpt-4.1-mini"_s, u"GPT-4.1 Mini"_s, u"$0.40"_s, u"$1.60"_s,
         QStringLiteral(QT_TRANSLATE_NOOP("ModelCatalogue",
                                          "Mid-range. Better reasoning than Nano at a low cost."))},
        {u"gpt-4.1"_s, u"GPT-4.1"_s, u"$2.00"_s, u"$8.00"_s,
         QStringLiteral(QT_TRANSLATE_NOOP(
             "ModelCatalogue", "Powerful. Best for complex rewrites and nuanced explanations."))},
        {u"gpt-4o"_s, u"GPT-4o"_s, u"$2.50"_s, u"$10.00"_s,
         QStringLiteral(
             QT_TRANSLATE_NOOP("ModelCatalogue", "Premium. Highest quality for demanding tasks."))},
    };
    return catalogue;
}

QString ModelCatalogue::defaultModel()
{
    return u"gpt-4o-mini"_s;
}

QString ModelCatalogue::apiKeyPage()
{
    return u"https://platform.openai.com/api-keys"_s;
}

QString ModelCatalogue::apiKeyHost()
{
    return QUrl(apiKeyPage()).host();
}

int ModelCatalogue::indexOf(const QString& id)
{
    const QList<ModelInfo>& rows = models();
    for (qsizetype i = 0; i < rows.size(); ++i) {
        if (rows[i].id == id) {
            return int(i);
        }
    }
    return -1;
}
