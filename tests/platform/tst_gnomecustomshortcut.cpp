// Ravelo's entry among GNOME's custom shortcuts, written through the real gsettings program
// into the keyfile backend of the test's own XDG_CONFIG_HOME, with GNOME's own schemas.
#include "GSettingsKeyfile.h"
#include "platform/KeyMap.h"
#include "platform/gnome/GnomeCustomShortcut.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 keyC = 8;
constexpr quint32 keySpace = 49;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
const QString ours = QString::fromLatin1(GnomeCustomShortcut::entryPath);
const QString foreign0 =
    u"/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom0/"_s;
const QString foreign1 =
    u"/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom1/"_s;
const QStringList command{u"/opt/it's mine/ravelo"_s, u"trigger"_s};

/// Waits for the gsettings calls under way; true when they worked.
bool settle(GnomeCustomShortcut& shortcut)
{
    return QTest::qWaitFor([&] { return !shortcut.isBusy(); }, 20000) &&
           shortcut.errorText().isEmpty();
}

QString ourValue(const char* key)
{
    return GSettingsKeyfile::entryValue(ours, QString::fromLatin1(key));
}

} // namespace

class TestGnomeCustomShortcut : public QObject {
    Q_OBJECT

private slots:
    void init() { GSettingsKeyfile::reset(); }

    void accelerator_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("modifiers");
        QTest::addColumn<QString>("accelerator");
        QTest::newRow("Super+C") << keyC << KeyMap::controlMask << u"<Super>c"_s;
        QTest::newRow("Ctrl+Shift+Space") << keySpace << ctrlShift << u"<Primary><Shift>space"_s;
        QTest::newRow("Alt+F5") << 96u << KeyMap::optionMask << u"<Alt>F5"_s;
        QTest::newRow("all four on K")
            << 40u << KeyMap::allModifiers << u"<Primary><Shift><Alt><Super>k"_s;
        QTest::newRow("Shift+Page Up") << 116u << KeyMap::shiftMask << u"<Shift>Prior"_s;
        QTest::newRow("a key the map does not know")
            << KeyMap::unknownKeyCode << KeyMap::commandMask << QString();
    }

    void accelerator()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, modifiers);
        QFETCH(QString, accelerator);
        QCOMPARE(GnomeCustomShortcut::accelerator(keyCode, modifiers), accelerator);
    }

    // Added beside the shortcuts of others, then again with other keys (still one entry), then
    // removed: only its own entry goes.
    void addsBesideForeignShortcutsAndRemovesOnlyItsOwn()
    {
        GnomeCustomShortcut shortcut;
        shortcut.refresh();
        QVERIFY(settle(shortcut));
        QVERIFY(!shortcut.isInstalled());
        GSettingsKeyfile::addForeignShortcut(foreign0, u"<Super>t"_s);
        GSettingsKeyfile::addForeignShortcut(foreign1, u"<Primary><Alt>e"_s);
        shortcut.install(keyC, KeyMap::controlMask, command);
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.hasKeys(keyC, KeyMap::controlMask));
        QVERIFY(shortcut.runs(command));
        QCOMPARE(ourValue("name"), u"Ravelo"_s);
        QCOMPARE(ourValue("command"), u"'/opt/it'\\''s mine/ravelo' trigger"_s);
        QCOMPARE(ourValue("binding"), u"<Super>c"_s);

        shortcut.install(keySpace, ctrlShift, command);
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.hasKeys(keySpace, ctrlShift));
        QVERIFY(!shortcut.hasKeys(keyC, KeyMap::controlMask));
        QCOMPARE(GSettingsKeyfile::customPaths(), (QStringList{foreign0, foreign1, ours}));
        QCOMPARE(ourValue("binding"), u"<Primary><Shift>space"_s);

        shortcut.remove();
        QVERIFY(settle(shortcut));
        QVERIFY(!shortcut.isInstalled());
        QCOMPARE(GSettingsKeyfile::customPaths(), (QStringList{foreign0, foreign1}));
        QCOMPARE(GSettingsKeyfile::entryValue(foreign0, u"binding"_s), u"<Super>t"_s);
        QCOMPARE(GSettingsKeyfile::entryValue(foreign1, u"command"_s), u"gnome-terminal"_s);
        // Its own keys are reset to GNOME's default, none.
        QCOMPARE(ourValue("binding") + ourValue("command"), QString());
    }

    // Made by hand as the README shows, it is found as Ravelo's.
    void findsTheShortcutMadeByHand()
    {
        GSettingsKeyfile::addForeignShortcut(ours, u"<Super>c"_s);
        GnomeCustomShortcut shortcut;
        shortcut.refresh();
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.isInstalled());
        QVERIFY(shortcut.hasKeys(keyC, KeyMap::controlMask));
        QVERIFY(!shortcut.runs(command));
        QVERIFY(shortcut.runs({u"gnome-terminal"_s}));
    }

    void missingSchemaIsSaid()
    {
        // A system with GSettings schemas, but none of GNOME's settings daemon.
        QTemporaryDir data;
        const QString schemas = data.filePath(u"glib-2.0/schemas"_s);
        QVERIFY(QDir().mkpath(schemas));
        QFile other(schemas + u"/org.example.other.gschema.xml"_s);
        QVERIFY(other.open(QIODevice::WriteOnly));
        other.write(R"(<schemalist><schema id="org.example.other" path="/org/example/other/">
            <key name="on" type="b"><default>false</default></key></schema></schemalist>)");
        other.close();
        QCOMPARE(QProcess::execute(u"glib-compile-schemas"_s, {schemas}), 0);
        const QByteArray dataDirs = qgetenv("XDG_DATA_DIRS");
        qputenv("XDG_DATA_DIRS", data.path().toLocal8Bit());
        GnomeCustomShortcut shortcut;
        shortcut.install(keyC, KeyMap::controlMask, command);
        QTRY_VERIFY_WITH_TIMEOUT(!shortcut.isBusy(), 20000);
        qputenv("XDG_DATA_DIRS", dataDirs);
        QVERIFY(!shortcut.isInstalled());
        QVERIFY2(shortcut.errorText().contains(u"not installed"_s),
                 qPrintable(shortcut.errorText()));
    }
};

QTEST_GUILESS_MAIN(TestGnomeCustomShortcut)
#include "tst_gnomecustomshortcut.moc"
