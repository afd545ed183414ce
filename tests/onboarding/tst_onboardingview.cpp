#include "QmlHarness.h"
#include "SecretService.h"
#include "onboarding/OnboardingFlow.h"
#include "platform/AccessibilityTrust.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

namespace {

// A permission that the user grants after a number of checks, as the system's own
// dialog would be answered some time after the request.
class GrantedLater : public AccessibilityTrust {
public:
    explicit GrantedLater(int grantedAfterChecks)
        : m_grantedAfter(grantedAfterChecks)
    {}
    bool isTrusted() const override { return ++m_checks > m_grantedAfter; }
    void requestTrust() override { ++requests; }

    int checks() const { return m_checks; }
    int requests = 0;

private:
    int m_grantedAfter;
    mutable int m_checks = 0;
};

} // namespace

class TestOnboardingView : public QObject {
    Q_OBJECT

private slots:
    void init() { m_path = m_dir.filePath(u"case%1.conf"_s.arg(++m_case)); }
    // Return walks on to "Get Started"; Back goes back and hides on the first page; the pages fade
    // into each other; "Get Started" completes it.
    void pagesFadeAndReturnWalksThemToTheEnd()
    {
        QmlHarness harness(m_path);
        auto view = showOnboarding(harness);
        QVERIFY(view);
        QCOMPARE(view->size(), QSize(560, 460));
        OnboardingFlow* flow = flowOf(view.get());
        QQuickItem* dots = findItem(view.get(), "pageDots");
        QList<QQuickItem*> pages;
        for (QQuickItem* item :
             dots->parentItem()->parentItem()->childItems().first()->childItems()) {
            if (item->property("step").isValid()) {
                pages.append(item);
            }
        }
        QCOMPARE(pages.size(), 4);
        QCOMPARE(pages[0]->opacity(), 1.0);
        QCOMPARE(pages[1]->opacity(), 0.0);
        QQuickItem* back = findItem(view.get(), "backButton");
        QQuickItem* primary = findItem(view.get(), "continueButton");
        QVERIFY(!back->isVisible());
        QSignalSpy completed(view->rootObject(), SIGNAL(completed()));
        for (int step = 0; step < 3; ++step) {
            QCOMPARE(flow->currentStep(), step);
            QCOMPARE(primary->property("text").toString(), u"Continue"_s);
            QTest::keyClick(view.get(), Qt::Key_Return);
        }
        QCOMPARE(flow->currentStep(), 3);
        QCOMPARE(primary->property("text").toString(), u"Get Started"_s);
        // Trusted from the start: all set at once.
        QCOMPARE(text(view.get(), "permissionTitle"), u"You're All Set!"_s);
        QVERIFY(findItem(view.get(), "trayHint")->isVisible());
        QVERIFY(!findItem(view.get(), "grantButton")->isVisible());
        // Nothing was typed: the key stays absent.
        QVERIFY(!harness.store.contains(Preferences::apiKey));

        for (int step = 2; step >= 0; --step) {
            QVERIFY(back->isVisible());
            click(back);
            QCOMPARE(flow->currentStep(), step);
        }
        QVERIFY(!back->isVisible());
        flow->back();
        QCOMPARE(flow->currentStep(), 0);
        QTRY_COMPARE(pages[0]->opacity(), 1.0);
        click(primary);
        QTRY_VERIFY(pages[1]->opacity() > 0.0 && pages[1]->opacity() < 1.0);
        QTRY_COMPARE(pages[1]->opacity(), 1.0);
        QCOMPARE(pages[0]->opacity(), 0.0);
        QVERIFY(!pages[0]->isEnabled());
        click(primary);
        click(primary);
        QCOMPARE(flow->currentStep(), 3);
        QVERIFY(completed.isEmpty());
        click(primary);
        QCOMPARE(completed.count(), 1);
        QVERIFY(harness.store.boolean(Preferences::hasCompletedOnboarding));
    }
    // A stored key is shown and written back once; typed, it is stored as it is, with a warning
    // while it does not start with "sk-".
    void keyIsShownWrittenBackAndStoredAsTyped()
    {
        QmlHarness harness(m_path);
        harness.store.setString(Preferences::apiKey, u"sk-kept"_s);
        QSignalSpy changed(&harness.store, &PreferenceStore::changed);
        auto view = showOnboarding(harness);
        QVERIFY(view);
        QCOMPARE(text(view.get(), "apiKeyField"), u"sk-kept"_s);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(harness.store.string(Preferences::apiKey), u"sk-kept"_s);

        flowOf(view.get())->setCurrentStep(2);
        QQuickItem* warning = findItem(view.get(), "keyWarning");
        QTRY_VERIFY(findItem(view.get(), "apiKeyField")->hasActiveFocus());
        QVERIFY(!warning->isVisible());
        const auto shows = [&](const QString& stored, bool warned) {
            return harness.store.contains(Preferences::apiKey) &&
                   harness.store.string(Preferences::apiKey) == stored &&
                   warning->isVisible() == warned;
        };
        QTest::keyClick(view.get(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(view.get(), Qt::Key_Backspace);
        QVERIFY(shows(QString(), false));
        typeText(view.get(), u"abc "_s);
        QVERIFY(shows(u"abc "_s, true));
        for (int i = 0; i < 4; ++i) {
            QTest::keyClick(view.get(), Qt::Key_Backspace);
        }
        QVERIFY(shows(QString(), false));
        typeText(view.get(), u"sk-"_s);
        QVERIFY(shows(u"sk-"_s, false));
        QTest::keyClick(view.get(), Qt::Key_Home);
        QTest::keyClick(view.get(), ' ');
        QVERIFY(shows(u" sk-"_s, true));
    }
    // The walkthrough may open before the keyring answers; the key page takes the key as soon as
    // it does, and what is typed there goes to the keyring when the walkthrough ends.
    void keyringKeyIsShownAndTheTypedOneStoredThere()
    {
        QVERIFY2(m_secrets.start(), qPrintable(m_secrets.error()));
        m_secrets.useInThisProcess();
        QVERIFY(m_secrets.storeApiKey(u"sk-ring"_s));

        QmlHarness harness(m_path);
        harness.store.setKeyringWriteDelay(std::chrono::hours(1));
        auto view = showOnboarding(harness);
        QVERIFY(view);
        OnboardingFlow* flow = flowOf(view.get());
        harness.store.useKeyring();
        flow->setCurrentStep(2);
        QQuickItem* field = findItem(view.get(), "apiKeyField");
        QTRY_COMPARE(field->property("text").toString(), u"sk-ring"_s);

        QTRY_VERIFY(field->hasActiveFocus());
        QTest::keyClick(view.get(), Qt::Key_End);
        typeText(view.get(), u"-2"_s);
        QSignalSpy stored(&harness.store, &PreferenceStore::apiKeyStoredInKeyring);
        flow->finish();
        QVERIFY(stored.wait());
        QCOMPARE(m_secrets.apiKey(), u"sk-ring-2"_s);
    }
    void anotherServerIsChosenAndItsModelsListed()
    {
        ChatServer server;
        QmlHarness harness(m_path);
        auto view = showOnboarding(harness);
        QVERIFY(view);
        flowOf(view.get())->setCurrentStep(2);
        QVERIFY(findItem(view.get(), "apiKeyField")->isVisible());
        chooseAnotherServer(view.get(), harness.store, server);
        if (QTest::currentTestFailed()) {
            return;
        }
        QVERIFY(!findItem(view.get(), "apiKeyField")->isVisible());
        QVERIFY(!findItem(view.get(), "keyWarning")->isVisible());

        // Coming back to the page, typing goes to the server's address.
        flowOf(view.get())->setCurrentStep(1);
        flowOf(view.get())->setCurrentStep(2);
        QTRY_VERIFY(findItem(view.get(), "serverAddressField")->hasActiveFocus());
    }
    void grantIsCheckedThirtyTimesPerPress_data()
    {
        QTest::addColumn<int>("grantedAfter");
        QTest::newRow("never granted") << std::numeric_limits<int>::max();
        QTest::newRow("granted at the tenth check") << 10;
    }
    // One check on appearance and one per press, then 30 scheduled checks for each press, until
    // a check finds the permission granted.
    void grantIsCheckedThirtyTimesPerPress()
    {
        QFETCH(int, grantedAfter);
        QmlHarness harness(m_path);
        GrantedLater trust(grantedAfter);
        auto view = showOnboarding(harness, &trust);
        QVERIFY(view);
        OnboardingFlow* flow = flowOf(view.get());
        flow->setCurrentStep(3);
        QSignalSpy granted(flow, &OnboardingFlow::accessibilityGrantedChanged);
        QCOMPARE(text(view.get(), "permissionTitle"), u"One More Thing"_s);
        QCOMPARE(trust.checks(), 1);
        QVERIFY(findItem(view.get(), "grantButton")->isVisible());
        click(findItem(view.get(), "grantButton"));
        click(findItem(view.get(), "grantButton"));
        QCOMPARE(trust.requests, 2);
        const int allChecks = 1 + 2 + 2 * OnboardingFlow::checkCount;
        if (grantedAfter > allChecks) {
            QTRY_COMPARE(trust.checks(), allChecks);
        } else {
            QTRY_VERIFY(flow->accessibilityGranted());
            QCOMPARE(text(view.get(), "permissionTitle"), u"You're All Set!"_s);
        }
        QTest::qWait(100);
        QCOMPARE(trust.checks(), grantedAfter > allChecks ? allChecks : grantedAfter + 1);
        QCOMPARE(granted.count(), grantedAfter > allChecks ? 0 : 1);
    }

private:
    std::unique_ptr<QQuickView> showOnboarding(QmlHarness& harness,
                                               AccessibilityTrust* trust = nullptr)
    {
        QVariantMap properties{{u"checkInterval"_s, 2}};
        if (trust) {
            properties.insert(u"trust"_s, QVariant::fromValue<QObject*>(trust));
        }
        return harness.show(u"qrc:/Ravelo/onboarding/OnboardingView.qml"_s, properties);
    }
    static OnboardingFlow* flowOf(QQuickView* view)
    {
        return view->rootObject()->property("flow").value<OnboardingFlow*>();
    }

    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
    SecretService m_secrets;
};

QTEST_MAIN(TestOnboardingView)
#include "tst_onboardingview.moc"
