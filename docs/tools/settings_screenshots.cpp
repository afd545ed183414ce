// Draws the preferences tabs, the prompt editor and the walkthrough pages in a light and
// a dark palette and saves them as PNG files:
//
//   settings_screenshots OUTPUT_DIR light|dark
//
// The texts are in the session's language (LANG=de_DE.UTF-8 draws them in German).
#include "QmlHarness.h"
#include "platform/AccessibilityTrust.h"

#include <QDir>
#include <QGuiApplication>
#include <QPalette>
#include <QTemporaryDir>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

namespace {

class Untrusted : public AccessibilityTrust {
public:
    bool isTrusted() const override { return false; }
    void requestTrust() override {}
};

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x2b, 0x2b, 0x2d);
    const QColor base(0x1f, 0x1f, 0x21);
    const QColor text(0xe8, 0xe8, 0xea);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3d));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, QColor(0x2f, 0x7d, 0xe1));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x5a, 0xa6, 0xff));
    p.setColor(QPalette::PlaceholderText, QColor(0x8a, 0x8a, 0x8e));
    p.setColor(QPalette::Light, QColor(0x4a, 0x4a, 0x4e));
    p.setColor(QPalette::Midlight, QColor(0x3f, 0x3f, 0x43));
    p.setColor(QPalette::Mid, QColor(0x33, 0x33, 0x36));
    p.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x77, 0x77, 0x7a));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x77, 0x77, 0x7a));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x77, 0x77, 0x7a));
    return p;
}

bool save(QQuickView* view, const QString& path)
{
    QCoreApplication::processEvents();
    QTest::qWait(800); // page fades and list transitions
    const QImage image = view->grabWindow();
    if (image.isNull() || !image.save(path)) {
        qWarning() << "Could not save" << path;
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication app(argc, argv);
    if (argc != 3) {
        qWarning("usage: settings_screenshots OUTPUT_DIR light|dark");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[1]));
    const QString name = QString::fromLocal8Bit(argv[2]);
    // The controls take the palette when they are first loaded.
    if (name == u"dark"_s) {
        QGuiApplication::setPalette(darkPalette());
    }
    QTemporaryDir dir;
    bool ok = true;
    {
        QmlHarness harness(dir.filePath(name + u".conf"_s));
        harness.store.setString(Preferences::apiKey, u"sk-proj-example"_s);
        harness.store.setInteger(Preferences::customHotkeyKeyCode, 49);
        harness.store.setInteger(Preferences::customHotkeyModifiers, 768);

        auto view = harness.show(u"qrc:/Ravelo/settings/SettingsView.qml"_s);
        if (!view) {
            return 1;
        }
        QQuickItem* tabs = findItem(view.get(), "tabs");
        const QStringList tabNames{u"general"_s, u"prompts"_s, u"hotkey"_s};
        for (int i = 0; i < tabNames.size(); ++i) {
            tabs->setProperty("currentIndex", i);
            ok &= save(view.get(), out.filePath(u"settings-%1-%2.png"_s.arg(tabNames[i], name)));
        }
        tabs->setProperty("currentIndex", 1);
        QCoreApplication::processEvents();
        click(findItemsByPosition(view->rootObject(), "editButton").value(0));
        ok &= save(view.get(), out.filePath(u"settings-editor-%1.png"_s.arg(name)));
        view.reset();

        Untrusted untrusted;
        for (bool trusted : {true, false}) {
            QVariantMap properties;
            if (!trusted) {
                properties.insert(u"trust"_s, QVariant::fromValue<QObject*>(&untrusted));
            }
            auto onboarding =
                harness.show(u"qrc:/Ravelo/onboarding/OnboardingView.qml"_s, properties);
            if (!onboarding) {
                return 1;
            }
            QObject* flow = onboarding->rootObject()->property("flow").value<QObject*>();
            for (int step = trusted ? 0 : 3; step < 4; ++step) {
                flow->setProperty("currentStep", step);
                const QString page = trusted ? QString::number(step) : u"3-untrusted"_s;
                ok &=
                    save(onboarding.get(), out.filePath(u"onboarding-%1-%2.png"_s.arg(page, name)));
            }
            if (trusted) {
                onboarding->rootObject()->setProperty("trayAvailable", false);
                ok &=
                    save(onboarding.get(), out.filePath(u"onboarding-3-notray-%1.png"_s.arg(name)));
            }
        }

        // A server of one's own that has answered "Test connection".
        ChatServer server;
        server.setModels({u"qwen2.5-0.5b-instruct"_s, u"llama3.2"_s});
        harness.store.setString(Preferences::apiKey, QString());
        harness.store.setString(Preferences::baseUrl, server.baseUrl());
        harness.store.setString(Preferences::model, u"qwen2.5-0.5b-instruct"_s);
        const auto connected = [](QQuickView* shown) {
            click(findItem(shown, "testConnectionButton"));
            return QTest::qWaitFor(
                [shown] {
                    return findItem(shown, "connectionStatus")
                        ->property("text")
                        .toString()
                        .contains(u"qwen2.5-0.5b-instruct"_s); // the list, in any language
                },
                10000);
        };
        auto general = harness.show(u"qrc:/Ravelo/settings/SettingsView.qml"_s);
        ok &= general && connected(general.get()) &&
              save(general.get(), out.filePath(u"settings-server-%1.png"_s.arg(name)));
        general.reset();
        auto onboarding = harness.show(u"qrc:/Ravelo/onboarding/OnboardingView.qml"_s);
        if (onboarding) {
            onboarding->rootObject()->property("flow").value<QObject*>()->setProperty("currentStep",
                                                                                      2);
        }
        ok &= onboarding && connected(onboarding.get()) &&
              save(onboarding.get(), out.filePath(u"onboarding-2-server-%1.png"_s.arg(name)));
    }
    return ok ? 0 : 1;
}
