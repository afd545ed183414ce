#pragma once

#include <QString>

class QCoreApplication;

namespace ravelo {

/// Installs into `app` Ravelo's catalogue for the first of the user's languages it has
/// (LANGUAGE, LC_ALL, LC_MESSAGES and LANG, as QLocale reads them), and Qt's own catalogue of
/// that language when the system has it. English is written in the code; its catalogue only
/// holds the plural forms and is taken when no other fits. Returns the language installed,
/// such as "de" or "en".
QString installTranslations(QCoreApplication& app);

} // namespace ravelo
