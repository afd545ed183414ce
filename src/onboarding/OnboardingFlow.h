#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

class AccessibilityTrust;
class PreferenceStore;

/// The state of the first-run walkthrough: the page shown, the API key as typed (stored
/// on every change) and whether Ravelo is trusted for Accessibility. After a permission
/// request it checks the trust 30 times, one check per `checkInterval`.
class OnboardingFlow : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_MOC_INCLUDE("model/PreferenceStore.h")
    Q_MOC_INCLUDE("platform/AccessibilityTrust.h")
    Q_PROPERTY(PreferenceStore* preferences READ preferences WRITE setPreferences NOTIFY
                   preferencesChanged)
    /// Null means the permission is automatic, as on X11.
    Q_PROPERTY(AccessibilityTrust* trust READ trust WRITE setTrust NOTIFY trustChanged)
    Q_PROPERTY(
        int checkInterval READ checkInterval WRITE setCheckInterval NOTIFY checkIntervalChanged)
    Q_PROPERTY(int totalSteps READ totalSteps CONSTANT)
    Q_PROPERTY(int currentStep READ currentStep WRITE setCurrentStep NOTIFY currentStepChanged)
    Q_PROPERTY(QString apiKeyInput READ apiKeyInput WRITE setApiKeyInput NOTIFY apiKeyInputChanged)
    /// A key is typed and does not start with "sk-".
    Q_PROPERTY(bool showsKeyWarning READ showsKeyWarning NOTIFY apiKeyInputChanged)
    Q_PROPERTY(
        bool accessibilityGranted READ accessibilityGranted NOTIFY accessibilityGrantedChanged)

public:
    static constexpr int checkCount = 30;

    explicit OnboardingFlow(QObject* parent = nullptr);

    PreferenceStore* preferences() const { return m_preferences; }
    void setPreferences(PreferenceStore* preferences);
    AccessibilityTrust* trust() const;
    void setTrust(AccessibilityTrust* trust);
    int checkInterval() const { return m_checkInterval; }
    void setCheckInterval(int milliseconds);

    int totalSteps() const { return 4; }
    int currentStep() const { return m_currentStep; }
    void setCurrentStep(int step);

    QString apiKeyInput() const { return m_apiKeyInput; }
    /// Stores the key exactly as given, the empty string included.
    void setApiKeyInput(const QString& key);
    bool showsKeyWarning() const;

    bool accessibilityGranted() const { return m_accessibilityGranted; }

    /// When the walkthrough appears: loads the stored key (writing it back) and checks
    /// the trust.
    Q_INVOKABLE void start();
    Q_INVOKABLE void next();
    Q_INVOKABLE void back();
    /// Asks for the permission when it is missing, then checks 30 times.
    Q_INVOKABLE void requestAccess();
    /// Stores that onboarding is complete, then emits `completed`.
    Q_INVOKABLE void finish();

signals:
    void preferencesChanged();
    void trustChanged();
    void checkIntervalChanged();
    void currentStepChanged();
    void apiKeyInputChanged();
    void accessibilityGrantedChanged();
    void completed();

private:
    bool isTrusted() const;
    void check();

    QPointer<PreferenceStore> m_preferences;
    QPointer<AccessibilityTrust> m_trust;
    int m_checkInterval = 1000;
    int m_currentStep = 0;
    QString m_apiKeyInput;
    bool m_accessibilityGranted = false;
};
