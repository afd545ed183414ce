#include "onboarding/OnboardingFlow.h"

#include "model/PreferenceStore.h"
#include "platform/AccessibilityTrust.h"

#include <QTimer>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

OnboardingFlow::OnboardingFlow(QObject* parent)
    : QObject(parent)
{}

void OnboardingFlow::setPreferences(PreferenceStore* preferences)
{
    if (m_preferences == preferences) {
        return;
    }
    if (m_preferences) {
        disconnect(m_preferences, nullptr, this, nullptr);
    }
    m_preferences = preferences;
    if (m_preferences) {
        // Shown as soon as the keyring hands it over, unless one is typed by then.
        connect(m_preferences, &PreferenceStore::apiKeyStorageChanged, this, [this] {
            if (m_apiKeyInput.isEmpty()) {
                setApiKeyInput(m_preferences->string(Preferences::apiKey).value_or(QString()));
            }
        });
    }
    emit preferencesChanged();
}

AccessibilityTrust* OnboardingFlow::trust() const
{
    return m_trust;
}

void OnboardingFlow::setTrust(AccessibilityTrust* trust)
{
    if (m_trust == trust) {
        return;
    }
    m_trust = trust;
    emit trustChanged();
}

void OnboardingFlow::setCheckInterval(int milliseconds)
{
    milliseconds = std::max(milliseconds, 0);
    if (m_checkInterval == milliseconds) {
        return;
    }
    m_checkInterval = milliseconds;
    emit checkIntervalChanged();
}

void OnboardingFlow::setCurrentStep(int step)
{
    step = std::clamp(step, 0, totalSteps() - 1);
    if (m_currentStep == step) {
        return;
    }
    m_currentStep = step;
    emit currentStepChanged();
}

void OnboardingFlow::setApiKeyInput(const QString& key)
{
    if (m_apiKeyInput == key) {
        return;
    }
    m_apiKeyInput = key;
    if (m_preferences) {
        m_preferences->setString(Preferences::apiKey, key);
    }
    emit apiKeyInputChanged();
}

bool OnboardingFlow::showsKeyWarning() const
{
    return !m_apiKeyInput.isEmpty() && !m_apiKeyInput.startsWith(u"sk-"_s);
}

void OnboardingFlow::start()
{
    if (m_preferences) {
        setApiKeyInput(m_preferences->string(Preferences::apiKey).value_or(QString()));
    }
    if (m_accessibilityGranted != isTrusted()) {
        m_accessibilityGranted = !m_accessibilityGranted;
        emit accessibilityGrantedChanged();
    }
}

void OnboardingFlow::next()
{
    setCurrentStep(m_currentStep + 1);
}

void OnboardingFlow::back()
{
    setCurrentStep(m_currentStep - 1);
}

void OnboardingFlow::requestAccess()
{
    if (!isTrusted() && m_trust) {
        m_trust->requestTrust();
    }
    // One timer per request: a second press runs a second set of checks beside the first.
    auto* timer = new QTimer(this);
    timer->setInterval(m_checkInterval);
    auto remaining = std::make_shared<int>(checkCount);
    connect(timer, &QTimer::timeout, this, [this, timer, remaining] {
        check();
        if (--*remaining == 0) {
            timer->deleteLater();
        } else {
            timer->start();
        }
    });
    timer->setSingleShot(true);
    timer->start();
}

void OnboardingFlow::finish()
{
    if (m_preferences) {
        m_preferences->saveApiKeyNow();
        m_preferences->setBoolean(Preferences::hasCompletedOnboarding, true);
    }
    emit completed();
}

bool OnboardingFlow::isTrusted() const
{
    return !m_trust || m_trust->isTrusted();
}

void OnboardingFlow::check()
{
    if (!m_accessibilityGranted && isTrusted()) {
        m_accessibilityGranted = true;
        emit accessibilityGrantedChanged();
    }
}
