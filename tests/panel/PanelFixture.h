#pragma once

#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "panel/FloatingPanel.h"
#include "platform/ModuleWindow.h"

#include <QQmlEngine>
#include <QQuickItem>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// A panel over a state of its own, with preferences in a temporary file.
struct PanelFixture {
    QTemporaryDir dir;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<AppState> state;
    std::unique_ptr<QQmlEngine> engine;
    std::unique_ptr<FloatingPanel> panel;

    PanelFixture()
    {
        store = std::make_unique<PreferenceStore>(dir.filePath(QStringLiteral("prefs.conf")));
        state = std::make_unique<AppState>(store.get());
        AppState::setQmlInstance(state.get());
        engine = createModuleEngine();
        panel = std::make_unique<FloatingPanel>(engine.get());
    }

    QQuickItem* item(const char* name) const
    {
        return panel->view()->findChild<QQuickItem*>(QLatin1String(name));
    }

    QRect sceneRect(const char* name) const
    {
        QQuickItem* it = item(name);
        return it->mapRectToScene(QRectF(0, 0, it->width(), it->height())).toAlignedRect();
    }

    // Shows the panel and waits until it has the keyboard focus.
    bool showAndFocus()
    {
        panel->centerAndShow();
        return QTest::qWaitForWindowExposed(panel.get()) &&
               QTest::qWaitForWindowActive(panel.get());
    }
};
