#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

class TestContentFittingScrollView : public QObject {
    Q_OBJECT

private slots:
    void fitsItsContent_data()
    {
        QTest::addColumn<QByteArray>("children");
        QTest::addColumn<qreal>("expectedHeight");
        QTest::addColumn<bool>("scrollable");

        QTest::newRow("short content") << QByteArray("Rectangle { height: 40 }") << 40.0 << false;
        QTest::newRow("exactly the maximum")
            << QByteArray("Rectangle { height: 100 }") << 100.0 << false;
        QTest::newRow("taller content") << QByteArray("Rectangle { height: 340 }") << 100.0 << true;
        QTest::newRow("the largest of several children")
            << QByteArray(
                   "Rectangle { height: 30 } Rectangle { height: 70 } Rectangle { height: 20 }")
            << 70.0 << false;
        QTest::newRow("wrapped text at the container's width")
            << QByteArray("Text { width: parent.width; wrapMode: Text.Wrap; font.pixelSize: 20; "
                          "text: 'word '.repeat(200) }")
            << 100.0 << true;
    }
    void fitsItsContent()
    {
        QFETCH(QByteArray, children);
        QFETCH(qreal, expectedHeight);
        QFETCH(bool, scrollable);

        QQmlEngine engine;
        engine.addImportPath(QStringLiteral("qrc:/"));
        QQmlComponent component(&engine);
        component.setData("import QtQuick\nimport Ravelo\nContentFittingScrollView { width: 300; "
                          "maxHeight: 100\n" +
                              children + "\n}",
                          QUrl(QStringLiteral("qrc:/test/Box.qml")));
        std::unique_ptr<QQuickItem> box(qobject_cast<QQuickItem*>(component.create()));
        QVERIFY2(box, qPrintable(component.errorString()));
        QTRY_COMPARE(box->implicitHeight(), expectedHeight);
        QCOMPARE(box->property("scrollable").toBool(), scrollable);
        QCOMPARE(box->property("flickable").value<QQuickItem*>()->height(), expectedHeight);
    }
};

QTEST_MAIN(TestContentFittingScrollView)
#include "tst_contentfittingscrollview.moc"
