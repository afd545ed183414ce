#pragma once

#include <QObject>
#include <QPointer>

class AccessibilityTrust;
class QQmlEngine;
class QQuickView;
class QQuickWindow;

/// The preferences window: "Ravelo Preferences", 520 × 420, not resizable, with the
/// General, Prompts and Hotkey tabs. Its QML reaches the application state through the
/// `AppState` singleton, which must be set before the first `open()`.
class SettingsWindow : public QObject {
    Q_OBJECT

public:
    explicit SettingsWindow(QQmlEngine* engine, QObject* parent = nullptr);
    ~SettingsWindow() override;

    /// Used by the Hotkey tab's permission button; without one the permission counts as
    /// granted and the button does nothing.
    void setAccessibilityTrust(AccessibilityTrust* trust);

    /// Brings a visible window to the front. Otherwise builds a new window with fresh
    /// content, on the "General" tab, centred on the primary screen, and shows it.
    void open();
    bool isVisible() const;
    /// The current window, shown or closed; null before the first `open()`.
    QQuickWindow* window() const;

signals:
    /// A new window was built by `open()`; the earlier one, if any, is gone.
    void windowCreated(QQuickWindow* window);

private:
    QQmlEngine* m_engine;
    QPointer<AccessibilityTrust> m_trust;
    QPointer<QQuickView> m_view;
};
