#pragma once

#include "platform/AccessibilityTrust.h"

/// X11 lets every client see raw key events and grab keys: there is nothing to ask for.
class X11AccessibilityTrust : public AccessibilityTrust {
    Q_OBJECT

public:
    using AccessibilityTrust::AccessibilityTrust;

    bool isTrusted() const override { return true; }
    void requestTrust() override {}
};
