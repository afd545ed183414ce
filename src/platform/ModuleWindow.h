#pragma once

#include <QSize>
#include <QString>
#include <QVariantMap>
#include <Qt>

#include <memory>

class QLoggingCategory;
class QQmlEngine;
class QQuickView;

/// What a window around one view of the Ravelo module looks like.
struct ModuleWindowSpec {
    QString title;
    Qt::WindowFlags flags;
    /// The content's size; the window cannot be resized.
    QSize size;
    /// The view's file in the module, e.g. "qrc:/Ravelo/settings/SettingsView.qml".
    QString source;
    QVariantMap initialProperties;
};

/// An engine that finds the Ravelo module under qrc:/. The module's location has to be known
/// before the first view is loaded: once a view has imported the module without it, the engine
/// keeps that import without the module's QML types, whatever is added later.
/// The windows of the module are drawn by the renderer chooseQuickRenderer() picks.
std::unique_ptr<QQmlEngine> createModuleEngine();

/// Builds the window, loads its view (load errors go to `log`) and centres it on the primary
/// screen. The window is not shown yet; the caller owns it.
/// `engine` comes from createModuleEngine().
QQuickView* createModuleWindow(QQmlEngine* engine, const ModuleWindowSpec& spec,
                               const QLoggingCategory& log);

/// Shows the window in front, as the window that receives the keys.
void showInFront(QQuickView* view);
