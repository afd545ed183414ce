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

namespace {

constexpr quint32 keyC = 8;
constexpr quint32 keySpace = 49;
const QString ours = QString::fromLatin1(GnomeCustomShortcut::entryPath);
const QString foreign0 =
    QStringLiteral("/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom0/");
const QString foreign1 =
    QStringLiteral("/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/custom1/");
const QStringList command{QStringLiteral("/opt/it's mine/ravelo"), QStringLiteral("trigger")};

/// Waits for the gsettings calls under way; true when they worked.
bool settle(GnomeCustomShortcut& shortcut)
{
    return QTest::qWaitFor([&] { return !shortcut.isBusy(); }, 20000) &&
           shortcut.errorText().isEmpty();
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
        QTest::newRow("Super+C") << keyC << KeyMap::controlMask << QStringLiteral("<Super>c");
        QTest::newRow("Ctrl+Shift+Space") << keySpace << (KeyMap::commandMask | KeyMap::shiftMask)
                                          << QStringLiteral("<Primary><Shift>space");
        QTest::newRow("Alt+F5") << quint32(96) << KeyMap::optionMask << QStringLiteral("<Alt>F5");
        QTest::newRow("all four on K") << quint32(40) << KeyMap::allModifiers
                                       << QStringLiteral("<Primary><Shift><Alt><Super>k");
        QTest::newRow("Shift+Page Up")
            << quint32(116) << KeyMap::shiftMask << QStringLiteral("<Shift>Prior");
        QTest::newRow("Ctrl+1") << quint32(18) << KeyMap::commandMask
                                << QStringLiteral("<Primary>1");
        QTest::newRow("a key the map does not know")
            << quint32(KeyMap::unknownKeyCode) << KeyMap::commandMask << QString();
    }

    void accelerator()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, modifiers);
        QFETCH(QString, accelerator);
        QCOMPARE(GnomeCustomShortcut::accelerator(keyCode, modifiers), accelerator);
    }

    void addsIntoAnEmptyList()
    {
        GnomeCustomShortcut shortcut;
        shortcut.refresh();
        QVERIFY(settle(shortcut));
        QVERIFY(!shortcut.isInstalled());

        shortcut.install(keyC, KeyMap::controlMask, command);
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.hasKeys(keyC, KeyMap::controlMask));
        QVERIFY(shortcut.runs(command));
        QCOMPARE(GSettingsKeyfile::customPaths(), QStringList{ours});
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("name")),
                 QStringLiteral("Ravelo"));
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("command")),
                 QStringLiteral("'/opt/it'\\''s mine/ravelo' trigger"));
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")),
                 QStringLiteral("<Super>c"));
    }

    void addsBesideForeignShortcutsAndRemovesOnlyItsOwn()
    {
        GSettingsKeyfile::addForeignShortcut(foreign0, QStringLiteral("<Super>t"));
        GSettingsKeyfile::addForeignShortcut(foreign1, QStringLiteral("<Primary><Alt>e"));
        GnomeCustomShortcut shortcut;
        shortcut.install(keyC, KeyMap::controlMask, command);
        QVERIFY(settle(shortcut));
        QCOMPARE(GSettingsKeyfile::customPaths(), (QStringList{foreign0, foreign1, ours}));

        shortcut.remove();
        QVERIFY(settle(shortcut));
        QVERIFY(!shortcut.isInstalled());
        QCOMPARE(GSettingsKeyfile::customPaths(), (QStringList{foreign0, foreign1}));
        QCOMPARE(GSettingsKeyfile::entryValue(foreign0, QStringLiteral("binding")),
                 QStringLiteral("<Super>t"));
        QCOMPARE(GSettingsKeyfile::entryValue(foreign1, QStringLiteral("command")),
                 QStringLiteral("gnome-terminal"));
        // Its own keys are reset to GNOME's default, none.
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")), QString());
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("command")), QString());
    }

    void addingAgainChangesTheKeysOnly()
    {
        GSettingsKeyfile::addForeignShortcut(foreign0, QStringLiteral("<Super>t"));
        GnomeCustomShortcut shortcut;
        shortcut.install(keyC, KeyMap::controlMask, command);
        QVERIFY(settle(shortcut));
        shortcut.install(keySpace, KeyMap::commandMask | KeyMap::shiftMask, command);
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.hasKeys(keySpace, KeyMap::commandMask | KeyMap::shiftMask));
        QVERIFY(!shortcut.hasKeys(keyC, KeyMap::controlMask));
        QCOMPARE(GSettingsKeyfile::customPaths(), (QStringList{foreign0, ours}));
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")),
                 QStringLiteral("<Primary><Shift>space"));
    }

    // Made by hand as the README shows, it is found as Ravelo's.
    void findsTheShortcutMadeByHand()
    {
        GSettingsKeyfile::addForeignShortcut(ours, QStringLiteral("<Super>c"));
        GnomeCustomShortcut shortcut;
        shortcut.refresh();
        QVERIFY(settle(shortcut));
        QVERIFY(shortcut.isInstalled());
        QVERIFY(shortcut.hasKeys(keyC, KeyMap::controlMask));
        QVERIFY(!shortcut.runs(command));
        QVERIFY(shortcut.runs({QStringLiteral("gnome-terminal")}));
    }

    void missingSchemaIsSaid()
    {
        // A system with GSettings schemas, but none of GNOME's settings daemon.
        QTemporaryDir data;
        QVERIFY(QDir(data.path()).mkpath(QStringLiteral("glib-2.0/schemas")));
        const QString schemas = data.filePath(QStringLiteral("glib-2.0/schemas"));
        QFile other(schemas + QStringLiteral("/org.example.other.gschema.xml"));
        QVERIFY(other.open(QIODevice::WriteOnly));
        other.write(R"(<schemalist><schema id="org.example.other" path="/org/example/other/">
            <key name="on" type="b"><default>false</default></key></schema></schemalist>)");
        other.close();
        QCOMPARE(QProcess::execute(QStringLiteral("glib-compile-schemas"), {schemas}), 0);
        const QByteArray dataDirs = qgetenv("XDG_DATA_DIRS");
        qputenv("XDG_DATA_DIRS", data.path().toLocal8Bit());
        GnomeCustomShortcut shortcut;
        shortcut.install(keyC, KeyMap::controlMask, command);
        QTRY_VERIFY_WITH_TIMEOUT(!shortcut.isBusy(), 20000);
        qputenv("XDG_DATA_DIRS", dataDirs);
        QVERIFY(!shortcut.isInstalled());
        QVERIFY2(shortcut.errorText().contains(QLatin1String("not installed")),
                 qPrintable(shortcut.errorText()));
    }
};

QTEST_GUILESS_MAIN(TestGnomeCustomShortcut)
#include "tst_gnomecustomshortcut.moc"
