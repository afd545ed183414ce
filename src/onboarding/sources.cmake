# The first-run walkthrough.
list(APPEND RAVELO_SOURCES
    onboarding/OnboardingFlow.cpp onboarding/OnboardingFlow.h
    onboarding/OnboardingWindow.cpp onboarding/OnboardingWindow.h
)
list(APPEND RAVELO_QML
    onboarding/ApiKeyPage.qml
    onboarding/HowItWorksPage.qml
    onboarding/OnboardingPage.qml
    onboarding/OnboardingSymbol.qml
    onboarding/OnboardingView.qml
    onboarding/PermissionPage.qml
    onboarding/WelcomePage.qml
)
file(GLOB _onboarding_icons CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
     ${CMAKE_CURRENT_LIST_DIR}/icons/*.svg)
list(APPEND RAVELO_RESOURCES ${_onboarding_icons})
