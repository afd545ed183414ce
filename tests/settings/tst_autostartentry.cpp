#include "settings/AutostartEntry.h"

#include <QDir>
#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

class TestAutostartEntry : public QObject {
    Q_OBJECT

private slots:
    void init();
    void entryPathFollowsXdgConfigHome_data();
    void entryPathFollowsXdgConfigHome();
    void createsDetectsRefreshesAndRemoves();
    void disabledEntriesCountAsOff_data();
    void disabledEntriesCountAsOff();
    void execNamesTheProgram_data();
    void execNamesTheProgram();
    void failedWritesReportAndKeepState_data();
    void failedWritesReportAndKeepState();
    void toggleFollowsTheEntry();

private:
    QString entryFile() const { return m_dir->path() + "/config/autostart/ravelo.desktop"_L1; }
    static QByteArray readAll(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    bool writeEntryFile(const QByteArray& contents) const
    {
        QFile file(entryFile());
        return QDir().mkpath(QFileInfo(entryFile()).path()) && file.open(QIODevice::WriteOnly) &&
               file.write(contents) == contents.size();
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestAutostartEntry::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir->path() + "/config"_L1));
}

void TestAutostartEntry::entryPathFollowsXdgConfigHome_data()
{
    QTest::addColumn<QString>("configHome");
    QTest::addColumn<QString>("expected");
    QTest::newRow("set") << u"/xdg/conf"_s << u"/xdg/conf/autostart/ravelo.desktop"_s;
    QTest::newRow("unset") << QString() << u"/home/someone/.config/autostart/ravelo.desktop"_s;
    QTest::newRow("relative is ignored")
        << u"conf"_s << u"/home/someone/.config/autostart/ravelo.desktop"_s;
}

void TestAutostartEntry::entryPathFollowsXdgConfigHome()
{
    QFETCH(QString, configHome);
    QFETCH(QString, expected);
    const auto restore = qScopeGuard([home = qgetenv("HOME")] { qputenv("HOME", home); });
    qputenv("HOME", "/home/someone");
    if (configHome.isNull()) {
        qunsetenv("XDG_CONFIG_HOME");
    } else {
        qputenv("XDG_CONFIG_HOME", configHome.toUtf8());
    }
    QCOMPARE(AutostartEntry::entryPath(), expected);
}

// Written and removed by one object, seen by a second; changes made outside are seen on refresh.
void TestAutostartEntry::createsDetectsRefreshesAndRemoves()
{
    AutostartEntry entry;
    QCOMPARE(entry.path(), entryFile());
    QVERIFY(!entry.enabled());
    QSignalSpy changed(&entry, &AutostartEntry::enabledChanged);

    entry.setEnabled(true);
    QVERIFY(entry.enabled());
    QCOMPARE(changed.count(), 1);
    QVERIFY(entry.error().isEmpty());
    QVERIFY(readAll(entryFile()).startsWith("[Desktop Entry]\n"));
    QVERIFY(AutostartEntry().enabled());
    entry.setEnabled(true);
    QCOMPARE(changed.count(), 1);

    entry.setEnabled(false);
    QVERIFY(!entry.enabled());
    QCOMPARE(changed.count(), 2);
    QVERIFY(!QFile::exists(entryFile()));
    QVERIFY(!AutostartEntry().enabled());

    QVERIFY(writeEntryFile("[Desktop Entry]\nExec=ravelo\n"));
    QVERIFY(!entry.enabled());
    entry.refresh();
    QVERIFY(entry.enabled());
    QCOMPARE(changed.count(), 3);
    entry.refresh();
    QCOMPARE(changed.count(), 3);
    QVERIFY(QFile::remove(entryFile()));
    entry.refresh();
    QVERIFY(!entry.enabled());
    QCOMPARE(changed.count(), 4);

    // Ticking the box again after the outside removal writes a new entry.
    entry.setEnabled(true);
    QVERIFY(QFile::exists(entryFile()));
}

void TestAutostartEntry::disabledEntriesCountAsOff_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<bool>("active");
    QTest::newRow("plain") << QByteArray("[Desktop Entry]\nExec=ravelo\n") << true;
    QTest::newRow("gnome switch on")
        << QByteArray("[Desktop Entry]\nX-GNOME-Autostart-enabled=true\n") << true;
    QTest::newRow("gnome switch off")
        << QByteArray("[Desktop Entry]\nX-GNOME-Autostart-enabled=false\n") << false;
    QTest::newRow("hidden") << QByteArray("[Desktop Entry]\nExec=ravelo\nHidden = true\n") << false;
    QTest::newRow("hidden in another group")
        << QByteArray("[Desktop Entry]\nExec=ravelo\n[Desktop Action x]\nHidden=true\n") << true;
    QTest::newRow("empty") << QByteArray() << true;
}

void TestAutostartEntry::disabledEntriesCountAsOff()
{
    QFETCH(QByteArray, contents);
    QFETCH(bool, active);
    QCOMPARE(AutostartEntry::entryIsActive(contents), active);

    QVERIFY(writeEntryFile(contents));
    AutostartEntry entry;
    QCOMPARE(entry.enabled(), active);
    if (!active) {
        // Ticking the box turns the user's disabled entry into one that starts Ravelo.
        entry.setEnabled(true);
        QVERIFY(AutostartEntry::entryIsActive(readAll(entryFile())));
    }
}

void TestAutostartEntry::execNamesTheProgram_data()
{
    QTest::addColumn<QString>("programName");
    QTest::addColumn<bool>("onPath");
    QTest::addColumn<QString>("expected");
    QTest::newRow("on PATH") << u"ravelo"_s << true << u"ravelo"_s;
    QTest::newRow("not on PATH") << u"ravelo"_s << false << u"%1/bin/ravelo"_s;
    QTest::newRow("another ravelo on PATH") << u"other"_s << true << u"%1/bin/other"_s;
    QTest::newRow("space") << u"my ravelo"_s << false << u"\"%1/bin/my ravelo\""_s;
    QTest::newRow("dollar and percent") << u"r$v%o"_s << false << u"\"%1/bin/r\\\\$v%%o\""_s;
}

void TestAutostartEntry::execNamesTheProgram()
{
    QFETCH(QString, programName);
    QFETCH(bool, onPath);
    QFETCH(QString, expected);
    const QString bin = m_dir->path() + "/bin"_L1;
    QVERIFY(QDir().mkpath(bin));
    for (const QString& name : {u"ravelo"_s, programName}) {
        QFile program(bin + u'/' + name);
        QVERIFY(program.open(QIODevice::WriteOnly));
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    const auto restore = qScopeGuard([path = qgetenv("PATH")] { qputenv("PATH", path); });
    qputenv("PATH", onPath ? QFile::encodeName(bin) : QByteArray("/nonexistent"));
    const QString line = AutostartEntry::execLine(bin + u'/' + programName);
    QCOMPARE(line, expected.contains("%1"_L1) ? expected.arg(m_dir->path()) : expected);

    AutostartEntry entry;
    entry.setProgramPath(bin + u'/' + programName);
    entry.setEnabled(true);
    const QByteArray execKey = "\nExec="_ba + line.toUtf8() + '\n';
    QVERIFY(readAll(entryFile()).contains(execKey));
}

void TestAutostartEntry::failedWritesReportAndKeepState_data()
{
    QTest::addColumn<bool>("folderIsAFile");
    QTest::newRow("autostart is a file") << true;
    QTest::newRow("entry is a folder") << false;
}

void TestAutostartEntry::failedWritesReportAndKeepState()
{
    QFETCH(bool, folderIsAFile);
    const QString folder = QFileInfo(entryFile()).path();
    const QString obstacle = folderIsAFile ? folder : entryFile() + "/inside"_L1;
    QVERIFY(folderIsAFile ? QDir().mkpath(QFileInfo(folder).path()) &&
                                QFile(folder).open(QIODevice::WriteOnly)
                          : QDir().mkpath(obstacle));

    AutostartEntry entry;
    QSignalSpy changed(&entry, &AutostartEntry::enabledChanged);
    QSignalSpy errorChanged(&entry, &AutostartEntry::errorChanged);
    entry.setEnabled(true);
    QVERIFY(!entry.enabled());
    QVERIFY2(entry.error().contains(entry.path()) || entry.error().contains(folder),
             qPrintable(entry.error()));
    QCOMPARE(errorChanged.count(), 1);
    // A control bound to the state hears that it stays as it was.
    QCOMPARE(changed.count(), 1);

    // Once the obstacle is gone, the next try succeeds and clears the message.
    QVERIFY(folderIsAFile ? QFile::remove(folder) : QDir(entryFile()).removeRecursively());
    entry.setEnabled(true);
    QVERIFY(entry.enabled());
    QVERIFY(entry.error().isEmpty());
}

void TestAutostartEntry::toggleFollowsTheEntry()
{
    QQmlEngine engine;
    engine.addImportPath(u"qrc:/"_s);
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nimport Ravelo\nWindow { width: 320; height: 120\n"
                      "property alias toggle: t\nAutostartToggle { id: t; width: 300 } }",
                      QUrl(u"qrc:/test/Host.qml"_s));
    std::unique_ptr<QObject> host(component.create());
    QVERIFY2(host, qPrintable(component.errorString()));
    auto* window = qobject_cast<QQuickWindow*>(host.get());
    QVERIFY(window);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    auto* toggle = host->property("toggle").value<QQuickItem*>();
    QVERIFY(toggle);
    auto* entry = toggle->property("entry").value<AutostartEntry*>();
    auto* box = toggle->property("checkBox").value<QQuickItem*>();
    QVERIFY(entry && box);
    QCOMPARE(box->property("checked").toBool(), false);
    const auto click = [&] {
        const QPointF centre = box->mapToScene(QPointF(box->width() / 2, box->height() / 2));
        QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    };

    click();
    QVERIFY(QFile::exists(entryFile()));
    QCOMPARE(box->property("checked").toBool(), true);

    // Shown again after the entry went away outside Ravelo, it reads it again.
    toggle->setVisible(false);
    QVERIFY(QFile::remove(entryFile()));
    toggle->setVisible(true);
    QCOMPARE(box->property("checked").toBool(), false);

    // A click that cannot be written leaves the box as the entry is, and says why.
    QVERIFY(QDir().mkpath(entryFile() + "/inside"_L1));
    click();
    QCOMPARE(box->property("checked").toBool(), false);
    QVERIFY(!entry->error().isEmpty());
}

QTEST_MAIN(TestAutostartEntry)
#include "tst_autostartentry.moc"
