#include "DesktopSession.h"
#include "RaveloProcess.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

struct Message {
    QString context;
    bool numerus = false;
    QString source;
    QString type;
    QStringList translations; ///< one per plural form
};

QList<Message> readCatalogue(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QList<Message> messages;
    QString context;
    QXmlStreamReader xml(&file);
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        if (xml.name() == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (xml.name() == QLatin1String("message")) {
            Message message;
            message.context = context;
            message.numerus =
                xml.attributes().value(QLatin1String("numerus")) == QLatin1String("yes");
            messages.append(message);
        } else if (xml.name() == QLatin1String("source")) {
            messages.last().source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            messages.last().type = xml.attributes().value(QLatin1String("type")).toString();
            if (!messages.last().numerus) {
                messages.last().translations.append(xml.readElementText());
            }
        } else if (xml.name() == QLatin1String("numerusform")) {
            messages.last().translations.append(xml.readElementText());
        }
    }
    return messages;
}

QStringList placeholders(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("%(\\d|n)"));
    QStringList found;
    for (const QRegularExpressionMatch& match : pattern.globalMatch(text)) {
        found.append(match.captured());
    }
    found.sort();
    found.removeDuplicates();
    return found;
}

} // namespace

// Ravelo in the user's language: the catalogues hold every text of the code, translated, and
// the real ravelo takes the one the session's language asks for.
class TestTranslations : public QObject {
    Q_OBJECT

private slots:
    void catalogueIsComplete_data()
    {
        QTest::addColumn<QString>("language");
        const QDir folder(qEnvironmentVariable("RAVELO_SOURCE_DIR") + QStringLiteral("/i18n"));
        const QStringList catalogues = folder.entryList({QStringLiteral("ravelo_*.ts")});
        QVERIFY(catalogues.contains(QStringLiteral("ravelo_de.ts")));
        for (const QString& name : catalogues) {
            const QString language = name.mid(7).chopped(3);
            QTest::newRow(qPrintable(language)) << language;
        }
    }

    void catalogueIsComplete()
    {
        QFETCH(QString, language);
        // English is the language of the code: only the plural forms need a catalogue.
        const QStringList options = language == QLatin1String("en")
                                        ? QStringList{QStringLiteral("-pluralonly")}
                                        : QStringList();

        // lupdate brings a copy up to date with the code: a text missing from the catalogue
        // comes back unfinished, one the code no longer has comes back vanished.
        const QString sourceDir = qEnvironmentVariable("RAVELO_SOURCE_DIR");
        const QString catalogue = sourceDir + QStringLiteral("/i18n/ravelo_%1.ts").arg(language);
        QTemporaryDir dir;
        const QString copy = dir.filePath(QFileInfo(catalogue).fileName());
        QVERIFY(QFile::copy(catalogue, copy));
        QProcess lupdate;
        lupdate.start(
            qEnvironmentVariable("RAVELO_LUPDATE"),
            QStringList{QStringLiteral("-I"), sourceDir + QStringLiteral("/src"),
                        QStringLiteral("-locations"), QStringLiteral("none")} +
                options +
                QStringList{QLatin1Char('@') + qEnvironmentVariable("RAVELO_TRANSLATED_SOURCES"),
                            QStringLiteral("-ts"), copy});
        QVERIFY(lupdate.waitForFinished(60000));
        QVERIFY2(lupdate.exitCode() == 0, lupdate.readAllStandardError().constData());

        const QList<Message> messages = readCatalogue(copy);
        QVERIFY(!messages.isEmpty());
        for (const Message& message : messages) {
            const QByteArray where = (message.context + QLatin1String(": ") + message.source +
                                      QLatin1String(" (") + message.type + QLatin1Char(')'))
                                         .toUtf8();
            QVERIFY2(message.type.isEmpty(), where.constData());
            QVERIFY2(message.numerus ? !message.translations.isEmpty()
                                     : message.translations.size() == 1,
                     where.constData());
            for (const QString& translation : message.translations) {
                QVERIFY2(!translation.isEmpty(), where.constData());
                // Every argument the code fills in must have its place in the translation.
                QCOMPARE(placeholders(translation), placeholders(message.source));
            }
        }
    }

    void commandLineSpeaksTheUsersLanguage_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("languageList");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QByteArray>("err");

        const QStringList help{QStringLiteral("--help")};
        const QByteArray english("Usage:\n  ravelo   ");
        QTest::newRow("help, C") << "C"
                                 << "" << help << 0 << english << QByteArray();
        QTest::newRow("help, en_US") << "en_US.UTF-8"
                                     << "" << help << 0 << english << QByteArray();
        QTest::newRow("help, a language without a catalogue")
            << "fr_FR.UTF-8"
            << "" << help << 0 << english << QByteArray();
        QTest::newRow("help, German") << "de_DE.UTF-8"
                                      << "" << help << 0 << QByteArray("Aufruf:\n") << QByteArray();
        QTest::newRow("help, German first in LANGUAGE")
            << "en_US.UTF-8"
            << "fr:de:en" << help << 0 << QByteArray("Aufruf:\n") << QByteArray();
        QTest::newRow("unknown command, German")
            << "de_DE.UTF-8"
            << "" << QStringList{QStringLiteral("bogus")} << 2 << QByteArray()
            << QByteArray("ravelo: unbekannter Befehl \xe2\x80\x9e"
                          "bogus\xe2\x80\x9c\n\nAufruf:\n");
        QTest::newRow("quit with none running, German")
            << "de_DE.UTF-8"
            << "" << QStringList{QStringLiteral("quit")} << 1 << QByteArray()
            << QByteArray("Ravelo l\xc3\xa4uft nicht.\n");
        // The key names come from the same catalogue: Ctrl is written Strg.
        QTest::newRow("run without a key, German")
            << "de_DE.UTF-8"
            << "" << QStringList{QStringLiteral("run"), QStringLiteral("1")} << 2 << QByteArray()
            << QByteArray("\xe2\x9a\xa0\xef\xb8\x8f Kein API-Schl\xc3\xbcssel gesetzt. "
                          "\xc3\x96"
                          "ffnen Sie die Einstellungen (Strg+,), um Ihren "
                          "OpenAI-API-Schl\xc3\xbcssel einzutragen.\n");
    }

    void commandLineSpeaksTheUsersLanguage()
    {
        QFETCH(QString, lang);
        QFETCH(QString, languageList);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);

        QFile::remove(qEnvironmentVariable("XDG_CONFIG_HOME") +
                      QStringLiteral("/Ravelo/Ravelo.conf"));
        QProcessEnvironment environment = environmentWithLanguage(lang);
        if (!languageList.isEmpty()) {
            environment.insert(QStringLiteral("LANGUAGE"), languageList);
        }
        const RaveloResult result = runRavelo(arguments, environment);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.out.startsWith(out), result.out.constData());
        QVERIFY2(result.err.startsWith(err), result.err.constData());
    }

    void preferencesWindowSpeaksTheUsersLanguage()
    {
        DesktopSession desktop;
        QVERIFY(desktop.startWindowManager());
        preferencesPastWalkthrough();
        RunningRavelo ravelo;
        QVERIFY(ravelo.start({QStringLiteral("preferences")},
                             environmentWithLanguage(QStringLiteral("de_DE.UTF-8"))));
        QVERIFY(QTest::qWaitFor(
            [] {
                return DesktopSession::xdotool(
                    {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                     QStringLiteral("--name"), QStringLiteral("^Ravelo-Einstellungen$")});
            },
            10000));
    }
};

QTEST_MAIN(TestTranslations)
#include "tst_translations.moc"
