#pragma once

#include <QObject>
#include <QPointer>

class AccessibilityTrust;
class QQmlEngine;
class QQuickView;
class QQuickWindow;

/// One first-run walkthrough in a 560 × 460 window without a visible title, movable by
/// its background. Its QML reaches the application state through the `AppState`
/// singleton, which must be set before `show()`.
class OnboardingWindow : public QObject {
    Q_OBJECT

public:
    explicit OnboardingWindow(QQmlEngine* engine, QObject* parent = nullptr);
    ~OnboardingWindow() override;

    /// Used for the permission page; without one the permission counts as granted.
    void setAccessibilityTrust(AccessibilityTrust* trust);
    /// Milliseconds between the checks after a permission request (one second).
    void setCheckInterval(int milliseconds);

    /// Builds the walkthrough on its first page, centres it on the primary screen and
    /// shows it. Showing it again while it is open brings it to the front.
    void show();
    void close();
    bool isVisible() const;
    QQuickWindow* window() const;

signals:
    /// "Get Started" was pressed; "has_completed_onboarding" is already stored. Closing
    /// the window any other way emits nothing.
    void completed();

private:
    QQmlEngine* m_engine;
    QPointer<AccessibilityTrust> m_trust;
    int m_checkInterval = 1000;
    QPointer<QQuickView> m_view;
};
