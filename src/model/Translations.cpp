#include "model/Translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

namespace ravelo {

QString installTranslations(QCoreApplication& app)
{
    const QString catalogues = QStringLiteral(":/i18n");
    auto* ravelo = new QTranslator(&app);
    if (!ravelo->load(QLocale::system(), QStringLiteral("ravelo"), QStringLiteral("_"),
                      catalogues) &&
        !ravelo->load(QStringLiteral("ravelo_en"), catalogues)) {
        delete ravelo;
        return {};
    }
    QCoreApplication::installTranslator(ravelo);
    const QString language = ravelo->language();

    // Qt's own texts (standard buttons, text field menus) in the same language, never a
    // language of their own beside English ones.
    if (!language.startsWith(QLatin1String("en"))) {
        auto* qt = new QTranslator(&app);
        if (qt->load(QLocale(language), QStringLiteral("qt"), QStringLiteral("_"),
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
            QCoreApplication::installTranslator(qt);
        } else {
            delete qt;
        }
    }
    return language;
}

} // namespace ravelo
