// Renders the quick panel in a few states and checks the picture: the card, the strip's
// hairline, the chips or the field, and the texts are drawn where they belong. The pictures
// are kept in $RAVELO_SCREENSHOT_DIR, or next to the test when that is not set.
#include "PanelFixture.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

const QColor panelBackground = QColor::fromRgbF(0.243f, 0.247f, 0.251f);
const QColor stripDivider = QColor::fromRgbF(0.329f, 0.329f, 0.329f);
const QColor chipBorder = QColor::fromRgbF(0.35f, 0.35f, 0.35f);
const QColor fieldFill = QColor::fromRgbF(0.22f, 0.22f, 0.23f);

bool near(QColor a, const QColor& b)
{
    return qAbs(a.red() - b.red()) <= 3 && qAbs(a.green() - b.green()) <= 3 &&
           qAbs(a.blue() - b.blue()) <= 3;
}

// How many pixels of `area` have about that colour.
int count(const QImage& image, const QRect& area, const QColor& colour)
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            n += near(image.pixelColor(x, y), colour) ? 1 : 0;
        }
    }
    return n;
}

// How many pixels of `area` are light, as text on the card is.
int lightPixels(const QImage& image, const QRect& area)
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            n += image.pixelColor(x, y).lightness() > 160 ? 1 : 0;
        }
    }
    return n;
}

} // namespace

class TestPanelScreenshots : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void withPrompts();
    void hairlineAtEveryPosition_data();
    void hairlineAtEveryPosition();
    void streamingResult();
    void customField();

private:
    QImage grab(const QString& name);
    QRect rectOf(const char* name) const;

    std::unique_ptr<PanelFixture> m_fixture;
};

void TestPanelScreenshots::init()
{
    m_fixture = std::make_unique<PanelFixture>();
    m_fixture->state->setClipboardText(QStringLiteral(
        "The quarterly report is due on Friday. Please make sure all figures are checked twice "
        "and the summary fits on one page."));
    QVERIFY(m_fixture->showAndFocus());
    QQuickItem* box = m_fixture->item("clipboardBox");
    QTRY_COMPARE(box->height(), box->property("measuredHeight").toReal());
}

void TestPanelScreenshots::cleanup()
{
    m_fixture.reset();
}

QRect TestPanelScreenshots::rectOf(const char* name) const
{
    QQuickItem* item = m_fixture->item(name);
    return item->mapRectToScene(QRectF(0, 0, item->width(), item->height())).toAlignedRect();
}

// The window as drawn, saved over a light backdrop, as on a desktop, so that the shadows show.
QImage TestPanelScreenshots::grab(const QString& name)
{
    const QImage panel = m_fixture->panel->grabWindow();
    if (panel.isNull()) {
        return panel;
    }
    QImage image(panel.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(QColor(0xd8, 0xdc, 0xe0));
    QPainter(&image).drawImage(0, 0, panel);
    if (!name.isEmpty()) {
        QString dir = qEnvironmentVariable("RAVELO_SCREENSHOT_DIR");
        if (dir.isEmpty()) {
            dir = QDir::currentPath();
        }
        QDir().mkpath(dir);
        const QString path = QDir(dir).filePath(name);
        if (image.save(path)) {
            qInfo().noquote() << "wrote" << path << image.size();
        }
    }
    return image;
}

void TestPanelScreenshots::withPrompts()
{
    // The chips' backgrounds are painted once the window's scene graph runs.
    QTRY_VERIFY(count(grab(QString()), rectOf("promptStrip"), chipBorder) > 100);
    const QImage image = grab(QStringLiteral("panel-prompts.png"));
    QVERIFY(!image.isNull());
    const QRect card = m_fixture->panel->cardGeometry().toAlignedRect();
    QVERIFY(near(image.pixelColor(card.center().x(), card.top() + 14), panelBackground));
    // The margin around the card holds only its shadow.
    QVERIFY(!near(image.pixelColor(card.center().x(), card.top() - 60), panelBackground));
    // The copied text, the chips with their borders, the placeholder of the answer.
    QVERIFY(lightPixels(image, rectOf("clipboardText")) > 200);
    QVERIFY(count(image, rectOf("promptStrip"), chipBorder) > 100);
    QVERIFY(lightPixels(image, rectOf("promptStrip")) > 100);
}

void TestPanelScreenshots::hairlineAtEveryPosition_data()
{
    QTest::addColumn<qreal>("fraction");
    for (qreal fraction : {0.0, 0.25, 0.5, 0.75}) {
        QTest::addRow("%.2f", fraction) << fraction;
    }
}

void TestPanelScreenshots::hairlineAtEveryPosition()
{
    QFETCH(qreal, fraction);
    // The clipboard box passes through fractional heights while it grows; the hairline under
    // it is drawn at each of them.
    QQuickItem* box = m_fixture->item("clipboardBox");
    const qreal height = std::floor(box->height()) + 10 + fraction;
    box->setProperty("contentHeight", height);
    QTRY_COMPARE(box->height(), height);
    QTRY_COMPARE(m_fixture->item("stripHairline")->mapToScene(QPointF()).y(),
                 box->mapToScene(QPointF(0, height)).y() + 16 + 25);
    const QImage image = grab(QString());
    QVERIFY(!image.isNull());
    // Left of the chips, across where the hairline lies.
    const QRect band = rectOf("promptStrip");
    const QRect column(band.left() + 8, band.top() + 20, 10, 10);
    QCOMPARE(count(image, column, stripDivider), 10);
}

void TestPanelScreenshots::streamingResult()
{
    m_fixture->state->setIsLoading(true);
    const QString answer = QStringLiteral(
        "Le rapport trimestriel est à rendre vendredi. Merci de vérifier deux fois tous les "
        "chiffres et de faire tenir le résumé sur une page.\n\nCe texte arrive par morceaux");
    const QRect answerBox = rectOf("answerBox");
    const int placeholder = lightPixels(grab(QString()), answerBox);
    for (qsizetype i = 0; i < answer.size(); i += 7) {
        m_fixture->state->appendResultText(answer.mid(i, 7));
    }
    QTRY_VERIFY(lightPixels(grab(QString()), answerBox) > placeholder + 500);
    const QRect copy = rectOf("copyButton");
    QVERIFY(count(grab(QStringLiteral("panel-streaming.png")), copy, panelBackground) <
            copy.width() * copy.height() * 9 / 10);
}

void TestPanelScreenshots::customField()
{
    m_fixture->state->setShowCustomPromptInput(true);
    m_fixture->state->setCustomPromptText(QStringLiteral("Rewrite as a haiku"));
    m_fixture->state->setLastCustomPromptText(QStringLiteral("Make it shorter"));
    m_fixture->state->setResultText(QStringLiteral("Report due Friday; check figures twice."));
    QTRY_VERIFY(m_fixture->item("customPromptField")->isVisible());
    const QImage image = grab(QStringLiteral("panel-custom.png"));
    const QRect field = rectOf("customPromptField");
    QVERIFY(count(image, field, fieldFill) > field.width() * field.height() / 2);
    QVERIFY(lightPixels(image, rectOf("customField")) > 100);
    const QRect save = rectOf("saveButton");
    QVERIFY(count(image, save, panelBackground) < save.width() * save.height() * 9 / 10);
}

QTEST_MAIN(TestPanelScreenshots)
#include "tst_panelscreenshots.moc"
