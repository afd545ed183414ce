#pragma once

#include "ChatServer.h"
#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "model/Translations.h"

#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QTest>
#include <QtQuickTest/quicktest.h>

#include <algorithm>

#include <memory>

// A preference file of its own, the application state over it and a QML engine that
// sees that state as `AppState`: what the preferences and walkthrough views run on, with
// the catalogue of the session's language (English in the tests) as in the application.
struct QmlHarness {
    explicit QmlHarness(const QString& path)
        : store(path)
        , state(&store)
    {
        [[maybe_unused]] static const QString language =
            ravelo::installTranslations(*QCoreApplication::instance());
        AppState::setQmlInstance(&state);
        engine = std::make_unique<QQmlEngine>();
        engine->addImportPath(QStringLiteral("qrc:/"));
    }

    // Loads a view from the module at its natural size and waits until it is exposed.
    std::unique_ptr<QQuickView> show(const QString& url, const QVariantMap& properties = {})
    {
        auto view = std::make_unique<QQuickView>(engine.get(), nullptr);
        view->setInitialProperties(properties);
        view->setResizeMode(QQuickView::SizeViewToRootObject);
        view->setSource(QUrl(url));
        if (view->status() != QQuickView::Ready) {
            qWarning() << view->errors();
            return {};
        }
        view->show();
        view->requestActivate();
        if (!QTest::qWaitForWindowActive(view.get())) {
            return {};
        }
        return view;
    }

    PreferenceStore store;
    AppState state;
    std::unique_ptr<QQmlEngine> engine;
};

// Every visible-tree descendant with that object name, delegates of views included.
inline QList<QQuickItem*> findItems(QQuickItem* root, const char* name)
{
    QList<QQuickItem*> found;
    const QList<QQuickItem*> children = root->childItems();
    for (QQuickItem* child : children) {
        if (child->objectName() == QLatin1String(name)) {
            found.append(child);
        }
        found.append(findItems(child, name));
    }
    return found;
}

// The same items from top to bottom, as the rows of a list appear.
inline QList<QQuickItem*> findItemsByPosition(QQuickItem* root, const char* name)
{
    QList<QQuickItem*> items = findItems(root, name);
    items.removeIf([](QQuickItem* item) { return !item->isVisible(); });
    std::sort(items.begin(), items.end(), [root](QQuickItem* a, QQuickItem* b) {
        return a->mapToItem(root, {}).y() < b->mapToItem(root, {}).y();
    });
    return items;
}

template<typename T = QQuickItem> T* findItem(QQuickView* view, const char* name)
{
    const QList<QQuickItem*> items = findItems(view->rootObject(), name);
    return items.isEmpty() ? nullptr : qobject_cast<T*>(items.first());
}

inline QString text(QQuickView* view, const char* name)
{
    return findItem(view, name)->property("text").toString();
}

// Clicks the middle of an item.
inline void click(QQuickItem* item)
{
    QVERIFY(item);
    QQuickWindow* window = item->window();
    // Buttons that just appeared are placed when the window is next polished.
    QVERIFY(QQuickTest::qWaitForPolish(window));
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(window, Qt::LeftButton, Qt::NoModifier, centre.toPoint());
}

inline void typeText(QWindow* window, const QString& text)
{
    for (const QChar c : text) {
        QTest::keyClick(window, c.toLatin1());
    }
}

// A server of one's own, chosen as a user would in the General tab or the walkthrough:
// "Another OpenAI-compatible server", a preset, the address of `server` typed, "Test
// connection", then a listed model picked and another one typed. The store follows each
// step. `server` lists "qwen2.5-0.5b-instruct" and "llama3.2".
inline void chooseAnotherServer(QQuickView* view, PreferenceStore& store, ChatServer& server)
{
    using namespace Qt::StringLiterals;
    server.setModels({u"qwen2.5-0.5b-instruct"_s, u"llama3.2"_s});
    QQuickItem* form = findItem(view, "serverForm");
    QVERIFY(form && !form->isVisible());
    findItem(view, "serverChoice")->forceActiveFocus();
    QTest::keyClick(view, Qt::Key_Down);
    QVERIFY(form->isVisible());
    QCOMPARE(store.string(Preferences::baseUrl), u"http://127.0.0.1:8080/v1"_s);

    click(findItem(view, "preset Ollama"));
    QCOMPARE(store.string(Preferences::baseUrl), u"http://127.0.0.1:11434/v1"_s);
    QQuickItem* address = findItem(view, "serverAddressField");
    QCOMPARE(address->property("text").toString(), u"http://127.0.0.1:11434/v1"_s);

    address->forceActiveFocus();
    QTest::keyClick(view, Qt::Key_A, Qt::ControlModifier);
    typeText(view, server.baseUrl());
    QCOMPARE(store.string(Preferences::baseUrl), server.baseUrl());
    click(findItem(view, "testConnectionButton"));
    QTRY_COMPARE(findItem(view, "connectionStatus")->property("text").toString(),
                 u"Connected to 127.0.0.1:%1: 2 models (qwen2.5-0.5b-instruct, llama3.2)."_s.arg(
                     server.port()));
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.requests().first().path, QByteArray("/v1/models"));
    QVERIFY(!server.requests().first().hasHeader("Authorization"));

    QQuickItem* picker = findItem(view, "serverModelPicker");
    QCOMPARE(picker->property("count").toInt(), 2);
    picker->forceActiveFocus();
    QTest::keyClick(view, Qt::Key_Down);
    QTest::keyClick(view, Qt::Key_Down);
    QCOMPARE(store.string(Preferences::model), u"llama3.2"_s);
    click(picker->property("contentItem").value<QQuickItem*>());
    QTest::keyClick(view, Qt::Key_A, Qt::ControlModifier);
    typeText(view, u"mistral:7b"_s);
    QCOMPARE(store.string(Preferences::model), u"mistral:7b"_s);
    // No key typed: none is stored, and none would be sent.
    QCOMPARE(store.string(Preferences::apiKey).value_or(QString()), QString());
}
