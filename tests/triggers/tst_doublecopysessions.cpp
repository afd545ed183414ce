// Double copy as the clipboard's owner changes, in a real ravelo process and a real desktop
// session: Xvfb with openbox, headless sway or headless KWin (the test runs under
// with-xvfb, with-sway or with-kwin). The copies come from another application: an X11
// client of this test on X11, wl-copy on Wayland. No key is typed anywhere.
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "X11ClipboardSource.h"
#include "model/PreferenceStore.h"

#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <memory>

namespace {

using namespace std::chrono_literals;

/// One step of a row: wait, then copy the text (or clear the clipboard when it is null).
struct Copy {
    std::chrono::milliseconds after;
    QByteArray text;
};

// Apart from anything copied before, whichever way the detector rounds.
constexpr std::chrono::milliseconds quiet{700};

} // namespace

Q_DECLARE_METATYPE(QList<Copy>)

class TestDoubleCopySessions : public QObject {
    Q_OBJECT

private:
    bool m_wayland = false;
    DesktopSession m_desktop;
    std::unique_ptr<X11ClipboardSource> m_x11Source;
    RunningRavelo m_ravelo;
    bool m_drawn = false;

    bool copy(const QByteArray& text)
    {
        if (!m_wayland) {
            if (text.isNull()) {
                m_x11Source->clear();
                return true;
            }
            return m_x11Source->copy(text);
        }
        // wl-copy hands the selection to a child of its own that serves it, and returns.
        QProcess wlCopy;
        wlCopy.start(QStringLiteral("wl-copy"),
                     text.isNull() ? QStringList{QStringLiteral("--clear")}
                                   : QStringList{QStringLiteral("--"), QString::fromUtf8(text)});
        return wlCopy.waitForFinished(5000) && wlCopy.exitCode() == 0;
    }

    /// The length of the text each panel shown so far was shown with.
    QList<int> panelTexts()
    {
        static const QRegularExpression shown(
            QStringLiteral("Panel requested for (\\d+) characters"));
        QList<int> lengths;
        auto matches = shown.globalMatch(QString::fromUtf8(m_ravelo.readLog()));
        while (matches.hasNext()) {
            lengths.append(matches.next().captured(1).toInt());
        }
        return lengths;
    }

private slots:
    void initTestCase()
    {
        m_wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
        if (m_wayland) {
            QVERIFY2(QProcess::execute(QStringLiteral("wl-copy"), {QStringLiteral("--version")}) ==
                         0,
                     "wl-copy (package wl-clipboard) is missing");
        } else {
            QVERIFY(m_desktop.startWindowManager());
            m_x11Source = std::make_unique<X11ClipboardSource>();
            QVERIFY(m_x11Source->isValid());
        }
        {
            PreferenceStore preferences(preferencesPastWalkthrough());
            preferences.setBoolean(Preferences::useDoubleCopy, true);
        }
        QProcessEnvironment environment;
        // Ravelo picks its own platform, as when a user starts it.
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QString());
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("ravelo.app.debug=true;ravelo.triggers.debug=true"));
        QVERIFY(m_ravelo.start({}, environment));
        QVERIFY(m_ravelo.logged("Double copy armed (clipboard owner)") ||
                m_ravelo.logged("Double copy armed (copy keys, clipboard owner)"));
    }

    void copies_data()
    {
        QTest::addColumn<QList<Copy>>("copies");
        // The length of the text of each panel the copies open.
        QTest::addColumn<QList<int>>("panels");

        QTest::newRow("two copies 0.2 s apart")
            << QList<Copy>{{0ms, "first of a pair"}, {200ms, "second of the pair"}}
            << QList<int>{18};
        QTest::newRow("two copies 0.5 s apart")
            << QList<Copy>{{0ms, "slow one"}, {500ms, "slow two!"}} << QList<int>{};
        QTest::newRow("three copies fire once")
            << QList<Copy>{{0ms, "one"}, {150ms, "three, two"}, {150ms, "three copies"}}
            << QList<int>{10};
        QTest::newRow("a copy and a cleared clipboard")
            << QList<Copy>{{0ms, "then cleared"}, {150ms, QByteArray()}} << QList<int>{};
    }

    void copies()
    {
        QFETCH(QList<Copy>, copies);
        QFETCH(QList<int>, panels);
        QTest::qWait(int(quiet.count()));
        m_ravelo.clearLog();
        for (const Copy& step : copies) {
            QTest::qWait(int(step.after.count()));
            QVERIFY(copy(step.text));
        }
        // A double copy that must fire, after everything else: once its panel is logged,
        // every copy before it has been seen.
        QTest::qWait(int(quiet.count()));
        QVERIFY(copy("end"));
        QTest::qWait(200);
        QVERIFY(copy("end of the row"));
        panels.append(14);
        QTRY_VERIFY_WITH_TIMEOUT(panelTexts().size() >= panels.size(), 10000);
        QCOMPARE(panelTexts(), panels);
        // The panel first shown draws its first frame; later triggers may only change its text.
        m_drawn = m_drawn || m_ravelo.logged("Panel drawn");
        QVERIFY(m_drawn);
    }

    void cleanupTestCase() { m_ravelo.stop(); }
};

QTEST_MAIN(TestDoubleCopySessions)
#include "tst_doublecopysessions.moc"
