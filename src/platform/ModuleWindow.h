#pragma once

#include <QSize>
#include <QString>
#include <QVariantMap>
#include <Qt>

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

/// Builds the window, loads its view (load errors go to `log`) and centres it on the primary
/// screen. The window is not shown yet; the caller owns it.
QQuickView* createModuleWindow(QQmlEngine* engine, const ModuleWindowSpec& spec,
                               const QLoggingCategory& log);

/// Shows the window in front, as the window that receives the keys.
void showInFront(QQuickView* view);
