#pragma once

#include <QObject>

/// Whether Ravelo may watch the keys of other applications, and how to ask for it.
class AccessibilityTrust : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    Q_INVOKABLE virtual bool isTrusted() const = 0;
    /// Asks the system for the permission when it is missing; the answer is not awaited.
    Q_INVOKABLE virtual void requestTrust() = 0;
};
