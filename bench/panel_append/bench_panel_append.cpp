// How long streaming an answer into the quick panel takes, fragment by fragment, and whether
// a fragment's cost grows with the text already shown. Run with QT_QPA_PLATFORM=offscreen.
#include "PanelFixture.h"

#include <QElapsedTimer>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

class BenchPanelAppend : public QObject {
    Q_OBJECT

private slots:
    void stream_data();
    void stream();
};

void BenchPanelAppend::stream_data()
{
    QTest::addColumn<int>("total");
    QTest::newRow("10,000 characters") << 10000;
    QTest::newRow("100,000 characters") << 100000;
}

void BenchPanelAppend::stream()
{
    QFETCH(int, total);
    PanelFixture f;
    f.state->setClipboardText(QStringLiteral("Copied text"));
    QVERIFY(f.showAndFocus());
    const QString paragraph = QStringLiteral(
        "A streamed answer arrives a few characters at a time and grows paragraph by paragraph. ");

    QBENCHMARK
    {
        f.state->setResultText(QString());
        int count = 0;
        QElapsedTimer lastTenth;
        for (int length = 0; length < total; length += 6) {
            if (length >= total * 9 / 10 && !lastTenth.isValid()) {
                lastTenth.start();
            }
            QString fragment = paragraph.mid((count * 6) % paragraph.size(), 6);
            if (++count % 60 == 0) {
                fragment += u'\n';
            }
            f.state->appendResultText(fragment);
            if (count % 50 == 0) {
                // Let the scene graph render now and then, as it would while streaming.
                QCoreApplication::processEvents();
            }
        }
        QCoreApplication::processEvents();
        qInfo("last tenth of the fragments: %lld ms", lastTenth.elapsed());
    }
}

QTEST_MAIN(BenchPanelAppend)
#include "bench_panel_append.moc"
