#include "platform/PlatformServices.h"
#include "triggers/HotkeyManager.h"

#include <QGuiApplication>
#include <QRegularExpression>
#include <QTest>

/// Runs on the offscreen platform: a session without X11. The backends stay disarmed and say
/// so once.
class TestPlatformServices : public QObject {
    Q_OBJECT

private slots:
    void offscreenHasNoX11()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("offscreen"));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("offscreen.*ravelo trigger")));
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
        QCOMPARE(PlatformServices::backend(), PlatformServices::Backend::None);
        QVERIFY(PlatformServices::unavailableReason().contains(QLatin1String("offscreen")));
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::DesktopShortcut);

        const auto monitor = PlatformServices::createGlobalKeyMonitor();
        const auto hotkey = PlatformServices::createGlobalHotkey();
        const auto trust = PlatformServices::createAccessibilityTrust();
        QVERIFY(!PlatformServices::createPasteTarget()->canPaste());
        QVERIFY(!monitor->start());
        QVERIFY(!monitor->isActive());
        QVERIFY(!hotkey->registerHotkey(49, 768));
        QVERIFY(!hotkey->isRegistered());
        QVERIFY(!trust->isTrusted());
        trust->requestTrust();

        HotkeyManager manager;
        manager.startDoubleCopyMonitor();
        manager.registerHotkey(40, 2304);
        QVERIFY(!manager.isDoubleCopyMonitorActive());
        QVERIFY(!manager.isHotkeyRegistered());
        manager.stop();
    }
};

QTEST_MAIN(TestPlatformServices)
#include "tst_platformservices.moc"
