// The Hotkey tab's settings in a GNOME session without global shortcuts for applications
// (here: offscreen, XDG_CURRENT_DESKTOP=GNOME), with GNOME's custom shortcut written through
// the real gsettings into the test's own keyfile.
#include "GSettingsKeyfile.h"
#include "model/PreferenceStore.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "platform/gnome/GnomeCustomShortcut.h"
#include "settings/HotkeySettings.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

constexpr quint32 keyC = 8;
constexpr quint32 keyK = 40;
const QString ours = QString::fromLatin1(GnomeCustomShortcut::entryPath);

using State = HotkeySettings::DesktopShortcutState;

bool reaches(const HotkeySettings& settings, State state)
{
    return QTest::qWaitFor([&] { return settings.desktopShortcutState() == state; }, 20000);
}

} // namespace

class TestHotkeySettings : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::DesktopShortcut);
    }

    void init()
    {
        GSettingsKeyfile::reset();
        QVERIFY(m_dir.isValid());
        QFile::remove(m_dir.filePath(QStringLiteral("Ravelo.conf")));
    }

    void offeredOnGnomeOnly()
    {
        QVERIFY(HotkeySettings().offersDesktopShortcut());
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        QVERIFY(!HotkeySettings().offersDesktopShortcut());
        qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    }

    // Added once, GNOME's shortcut takes every newly recorded hotkey, and goes with a cleared one.
    void shortcutFollowsTheRecordedHotkey()
    {
        PreferenceStore store(m_dir.filePath(QStringLiteral("Ravelo.conf")));
        HotkeySettings settings;
        settings.setPreferences(&store);
        settings.recordHotkey(keyC, KeyMap::controlMask);
        settings.load();
        QVERIFY(reaches(settings, State::Absent));
        QVERIFY(settings.desktopShortcutText().contains(QLatin1String("Super+C")));
        QVERIFY(settings.canAddDesktopShortcut());

        settings.addDesktopShortcut();
        QVERIFY(reaches(settings, State::Current));
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")),
                 QStringLiteral("<Super>c"));
        QVERIFY(GSettingsKeyfile::entryValue(ours, QStringLiteral("command"))
                    .endsWith(QLatin1String(" trigger")));

        settings.recordHotkey(keyK, KeyMap::commandMask | KeyMap::shiftMask);
        QVERIFY(QTest::qWaitFor([] {
            return GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")) ==
                   QLatin1String("<Primary><Shift>k");
        }));
        QVERIFY(reaches(settings, State::Current));
        QVERIFY(settings.desktopShortcutText().contains(QLatin1String("Ctrl+Shift+K")));

        settings.clearHotkey();
        QVERIFY(reaches(settings, State::Absent));
        QCOMPARE(GSettingsKeyfile::customPaths(), QStringList());
        QVERIFY(!settings.canAddDesktopShortcut());
    }

    void differentShortcutInGnomeIsOutOfDate_data()
    {
        QTest::addColumn<QString>("binding");
        QTest::addColumn<bool>("thisRavelo");
        QTest::newRow("keys changed in GNOME's Settings") << QStringLiteral("<Super>x") << true;
        QTest::newRow("another program on the same keys") << QStringLiteral("<Super>c") << false;
    }

    // Shown as out of date, and not overwritten on opening.
    void differentShortcutInGnomeIsOutOfDate()
    {
        QFETCH(QString, binding);
        QFETCH(bool, thisRavelo);
        GSettingsKeyfile::addForeignShortcut(ours, binding);
        if (thisRavelo) {
            GSettingsKeyfile::set(
                QString::fromLatin1(GnomeCustomShortcut::entrySchema) + QLatin1Char(':') + ours,
                QStringLiteral("command"),
                GnomeCustomShortcut::variantString(
                    GnomeCustomShortcut::commandLine(HotkeySettings::triggerCommand())));
        }
        PreferenceStore store(m_dir.filePath(QStringLiteral("Ravelo.conf")));
        store.setInteger(Preferences::customHotkeyKeyCode, keyC);
        store.setInteger(Preferences::customHotkeyModifiers, KeyMap::controlMask);
        HotkeySettings settings;
        settings.setPreferences(&store);
        settings.load();
        QVERIFY(reaches(settings, State::OutOfDate));
        QCOMPARE(GSettingsKeyfile::entryValue(ours, QStringLiteral("binding")), binding);
        settings.addDesktopShortcut();
        QVERIFY(reaches(settings, State::Current));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_MAIN(TestHotkeySettings)
#include "tst_hotkeysettings.moc"
