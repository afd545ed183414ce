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
    void initTestCase() { m_engine.addImportPath(QStringLiteral("qrc:/")); }
    void fitsItsContent_data();
    void fitsItsContent();
    void followsContentThatChanges();
    void startsAt24();

private:
    std::unique_ptr<QQuickItem> create(const QByteArray& children, qreal maxHeight);

    QQmlEngine m_engine;
};

std::unique_ptr<QQuickItem> TestContentFittingScrollView::create(const QByteArray& children,
                                                                 qreal maxHeight)
{
    QQmlComponent component(&m_engine);
    component.setData("import QtQuick\nimport Ravelo\nContentFittingScrollView { width: 300; "
                      "maxHeight: " +
                          QByteArray::number(maxHeight) + "\n" + children + "\n}",
                      QUrl(QStringLiteral("qrc:/test/Box.qml")));
    auto* item = qobject_cast<QQuickItem*>(component.create());
    if (!item) {
        qWarning().noquote() << component.errorString();
    }
    return std::unique_ptr<QQuickItem>(item);
}

void TestContentFittingScrollView::fitsItsContent_data()
{
    QTest::addColumn<QByteArray>("children");
    QTest::addColumn<qreal>("expectedHeight");
    QTest::addColumn<bool>("scrollable");

    QTest::newRow("short content")
        << QByteArray("Rectangle { width: 10; height: 40 }") << 40.0 << false;
    QTest::newRow("exactly the maximum")
        << QByteArray("Rectangle { width: 10; height: 100 }") << 100.0 << false;
    QTest::newRow("taller content")
        << QByteArray("Rectangle { width: 10; height: 340 }") << 100.0 << true;
    QTest::newRow("the largest of several children")
        << QByteArray("Rectangle { height: 30 } Rectangle { height: 70 } Rectangle { height: 20 }")
        << 70.0 << false;
    QTest::newRow("wrapped text at the container's width")
        << QByteArray("Text { width: parent.width; wrapMode: Text.Wrap; font.pixelSize: 20; "
                      "text: 'word '.repeat(200) }")
        << 100.0 << true;
}

void TestContentFittingScrollView::fitsItsContent()
{
    QFETCH(QByteArray, children);
    QFETCH(qreal, expectedHeight);
    QFETCH(bool, scrollable);

    auto box = create(children, 100);
    QVERIFY(box);
    QTRY_COMPARE(box->implicitHeight(), expectedHeight);
    QCOMPARE(box->property("scrollable").toBool(), scrollable);
    auto* flickable = box->property("flickable").value<QQuickItem*>();
    QVERIFY(flickable);
    QCOMPARE(flickable->height(), expectedHeight);
}

void TestContentFittingScrollView::followsContentThatChanges()
{
    auto box = create("Rectangle { objectName: 'content'; width: 10; height: 60 }", 250);
    QVERIFY(box);
    QTRY_COMPARE(box->implicitHeight(), 60.0);
    auto* content = box->findChild<QQuickItem*>(QStringLiteral("content"));
    content->setHeight(20);
    // The height eases towards the new value rather than jumping.
    QTest::qWait(40);
    const qreal midway = box->implicitHeight();
    QVERIFY2(midway < 60 && midway > 20, qPrintable(QString::number(midway)));
    QTRY_COMPARE(box->implicitHeight(), 20.0);
    content->setHeight(900);
    QTRY_COMPARE(box->implicitHeight(), 250.0);
    QVERIFY(box->property("scrollable").toBool());
}

void TestContentFittingScrollView::startsAt24()
{
    QQmlComponent component(&m_engine);
    component.setData("import QtQuick\nimport Ravelo\nContentFittingScrollView {}",
                      QUrl(QStringLiteral("qrc:/test/Empty.qml")));
    std::unique_ptr<QObject> box(component.beginCreate(m_engine.rootContext()));
    QVERIFY(box);
    QCOMPARE(box->property("contentHeight").toReal(), 24.0);
    component.completeCreate();
}

QTEST_MAIN(TestContentFittingScrollView)
#include "tst_contentfittingscrollview.moc"
