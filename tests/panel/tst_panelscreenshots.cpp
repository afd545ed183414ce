// Renders the quick panel in a few states to PNG files, for looking at. The pictures go to
// $RAVELO_SCREENSHOT_DIR, or next to the test when that is not set.
#include "PanelFixture.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

class TestPanelScreenshots : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void withPrompts();
    void streamingResult();
    void customField();

private:
    void save(const QString& name);

    std::unique_ptr<PanelFixture> m_fixture;
};

void TestPanelScreenshots::init()
{
    m_fixture = std::make_unique<PanelFixture>();
    m_fixture->state->setClipboardText(QStringLiteral(
        "The quarterly report is due on Friday. Please make sure all figures are checked twice "
        "and the summary fits on one page."));
    QVERIFY(m_fixture->showAndFocus());
}

void TestPanelScreenshots::cleanup()
{
    m_fixture.reset();
}

void TestPanelScreenshots::save(const QString& name)
{
    // Let the height animations settle before taking the picture.
    QTest::qWait(400);
    const QImage panel = m_fixture->panel->grabWindow();
    QVERIFY(!panel.isNull());
    // Over a light backdrop, as on a desktop, so that the shadows show.
    QImage image(panel.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(QColor(0xd8, 0xdc, 0xe0));
    QPainter(&image).drawImage(0, 0, panel);
    QString dir = qEnvironmentVariable("RAVELO_SCREENSHOT_DIR");
    if (dir.isEmpty()) {
        dir = QDir::currentPath();
    }
    QDir().mkpath(dir);
    const QString path = QDir(dir).filePath(name);
    QVERIFY2(image.save(path), qPrintable(path));
    qInfo().noquote() << "wrote" << path << image.size();
}

void TestPanelScreenshots::withPrompts()
{
    save(QStringLiteral("panel-prompts.png"));
}

void TestPanelScreenshots::streamingResult()
{
    m_fixture->state->setIsLoading(true);
    const QString answer = QStringLiteral(
        "Le rapport trimestriel est à rendre vendredi. Merci de vérifier deux fois tous les "
        "chiffres et de faire tenir le résumé sur une page.\n\nCe texte arrive par morceaux");
    for (qsizetype i = 0; i < answer.size(); i += 7) {
        m_fixture->state->appendResultText(answer.mid(i, 7));
    }
    save(QStringLiteral("panel-streaming.png"));
}

void TestPanelScreenshots::customField()
{
    m_fixture->state->setShowCustomPromptInput(true);
    m_fixture->state->setCustomPromptText(QStringLiteral("Rewrite as a haiku"));
    m_fixture->state->setLastCustomPromptText(QStringLiteral("Make it shorter"));
    m_fixture->state->setResultText(QStringLiteral("Report due Friday; check figures twice."));
    save(QStringLiteral("panel-custom.png"));
}

QTEST_MAIN(TestPanelScreenshots)
#include "tst_panelscreenshots.moc"
