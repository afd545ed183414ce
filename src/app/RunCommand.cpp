#include "app/RunCommand.h"

#include "app/PromptRun.h"
#include "completion/OpenAIError.h"
#include "model/PreferenceStore.h"
#include "model/PromptStore.h"
#include "model/Translations.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>

#include <cstdio>
#include <unistd.h>
#include <variant>

namespace ravelo {
namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

void printError(const QString& text)
{
    const QByteArray bytes = (text + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
}

/// The system prompt the arguments ask for, or an exit status when they ask for none.
std::variant<QString, int> chooseSystemPrompt(const QStringList& args,
                                              const PreferenceStore& preferences)
{
    if (args.size() == 2 && args.at(0) == QLatin1String("--custom")) {
        const QString instruction = args.at(1).trimmed();
        if (instruction.isEmpty()) {
            printError(QCoreApplication::translate("CommandLine",
                                                   "ravelo run: the custom instruction is empty"));
            return exitUsage;
        }
        return instruction;
    }
    bool isNumber = false;
    const qint64 number = args.size() == 1 ? args.at(0).toLongLong(&isNumber) : 0;
    if (!isNumber) {
        printError(QCoreApplication::translate("CommandLine",
                                               "usage: ravelo run N | ravelo run --custom TEXT"));
        return exitUsage;
    }
    const QList<Prompt> prompts = PromptStore::load(preferences);
    for (const Prompt& prompt : prompts) {
        if (prompt.number == number) {
            return prompt.systemPrompt;
        }
    }
    printError(QCoreApplication::translate("CommandLine", "ravelo run: no prompt is numbered %1")
                   .arg(number));
    return exitUsage;
}

/// Reads the key from the keyring, which may first ask the user to unlock it.
void readApiKey(PreferenceStore& preferences)
{
    preferences.useKeyring();
    if (preferences.apiKeyStorage() == PreferenceStore::ApiKeyStorage::ReadingKeyring) {
        QEventLoop loop;
        QObject::connect(&preferences, &PreferenceStore::apiKeyStorageChanged, &loop,
                         &QEventLoop::quit);
        loop.exec();
    }
}

} // namespace

int runCommand(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    installTranslations(app);
    QCoreApplication::setOrganizationName(QStringLiteral("Ravelo"));
    QCoreApplication::setApplicationName(QStringLiteral("Ravelo"));

    PreferenceStore preferences;
    const QStringList args = QCoreApplication::arguments().mid(2);
    const auto choice = chooseSystemPrompt(args, preferences);
    if (const int* status = std::get_if<int>(&choice)) {
        return *status;
    }
    readApiKey(preferences);
    if (!isReadyToRun(preferences)) {
        printError(missingApiKeyWarning());
        return exitUsage;
    }

    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly)) {
        printError(QCoreApplication::translate("CommandLine",
                                               "ravelo run: standard input cannot be read"));
        return exitFailed;
    }
    const QString userText = QString::fromUtf8(input.readAll());

    PromptRun* run = PromptRun::start(preferences, &app, std::get<QString>(choice), userText);
    bool endsWithNewline = true;
    // The answer is text: control characters a server slips in would drive the terminal.
    QObject::connect(run, &PromptRun::textReceived, &app, [&endsWithNewline](const QString& text) {
        const QString printable = withoutControlCharacters(text);
        if (printable.isEmpty()) {
            return;
        }
        const QByteArray bytes = printable.toUtf8();
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
        std::fflush(stdout);
        endsWithNewline = printable.endsWith(QLatin1Char('\n'));
    });
    QObject::connect(run, &PromptRun::succeeded, &app, [&endsWithNewline] {
        if (!endsWithNewline && isatty(STDOUT_FILENO)) {
            std::fputc('\n', stdout);
        }
        QCoreApplication::exit(0);
    });
    QObject::connect(run, &PromptRun::failed, &app, [&endsWithNewline](const QString& message) {
        if (!endsWithNewline && isatty(STDOUT_FILENO)) {
            std::fputc('\n', stdout);
        }
        std::fflush(stdout);
        printError(QCoreApplication::translate("CommandLine", "Error: %1").arg(message));
        QCoreApplication::exit(exitFailed);
    });
    return QCoreApplication::exec();
}

} // namespace ravelo
