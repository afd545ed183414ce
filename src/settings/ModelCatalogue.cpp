#include "settings/ModelCatalogue.h"

#include <QUrl>

using namespace Qt::StringLiterals;

QString ModelInfo::entryText() const
{
    return name + u"  \u2014  "_s + inputPrice + u" in / "_s + outputPrice + u" out"_s;
}

const QList<ModelInfo>& ModelCatalogue::models()
{
    static const QList<ModelInfo> catalogue{
        {u"gpt-4.1-nano"_s, u"GPT-4.1 Nano"_s, u"$0.10"_s, u"$0.40"_s,
         u"Cheapest. Great for simple tasks like translation and grammar fixes."_s},
        {u"gpt-4o-mini"_s, u"GPT-4o Mini"_s, u"$0.15"_s, u"$0.60"_s,
         u"Very affordable. Good balance of speed and quality."_s},
        {u"gpt-4.1-mini"_s, u"GPT-4.1 Mini"_s, u"$0.40"_s, u"$1.60"_s,
         u"Mid-range. Better reasoning than Nano at a low cost."_s},
        {u"gpt-4.1"_s, u"GPT-4.1"_s, u"$2.00"_s, u"$8.00"_s,
         u"Powerful. Best for complex rewrites and nuanced explanations."_s},
        {u"gpt-4o"_s, u"GPT-4o"_s, u"$2.50"_s, u"$10.00"_s,
         u"Premium. Highest quality for demanding tasks."_s},
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
