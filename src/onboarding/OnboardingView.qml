import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import QtQuick.Templates as T
import Ravelo

// The first-run walkthrough: four pages, the page dots and Back / Continue / Get
// Started. Return presses Continue, or Get Started on the last page.
WindowPane {
    id: root

    // Asks for the Accessibility permission; null where the permission is automatic.
    property var trust: null
    // The desktop shows tray icons, so the last page can point at the bolt.
    property bool trayAvailable: true
    // Milliseconds between the checks that follow a permission request.
    property int checkInterval: 1000
    readonly property alias flow: flow

    signal completed

    function advance() {
        if (flow.currentStep < flow.totalSteps - 1)
            flow.next()
        else
            flow.finish()
    }

    width: 560
    height: 460
    implicitWidth: 560
    implicitHeight: 460

    OnboardingFlow {
        id: flow
        preferences: AppState.preferences
        trust: root.trust
        checkInterval: root.checkInterval
        onCompleted: root.completed()
    }

    Component.onCompleted: flow.start()

    Shortcut {
        sequences: ["Return", "Enter"]
        // Return on a focused button presses that button instead (see WindowPane).
        enabled: !(root.Window.activeFocusItem instanceof T.AbstractButton)
        onActivated: root.advance()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Item {
            id: pageArea
            Layout.fillWidth: true
            Layout.fillHeight: true

            // The window has no title to hold: it moves by its background instead.
            DragHandler {
                target: null
                onActiveChanged: {
                    if (active && root.Window.window)
                        root.Window.window.startSystemMove()
                }
            }

            OnboardingPage {
                step: 0
                flow: flow
                WelcomePage {}
            }
            OnboardingPage {
                step: 1
                flow: flow
                HowItWorksPage {}
            }
            OnboardingPage {
                step: 2
                flow: flow
                ApiKeyPage {
                    flow: flow
                }
            }
            OnboardingPage {
                step: 3
                flow: flow
                PermissionPage {
                    flow: flow
                    trayAvailable: root.trayAvailable
                }
            }
        }

        SettingsDivider {
            Layout.fillWidth: true
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 20
            Layout.rightMargin: 20
            Layout.topMargin: 14
            Layout.bottomMargin: 14

            Row {
                objectName: "pageDots"
                spacing: 6
                Accessible.role: Accessible.StaticText
                Accessible.name: qsTr("Page %1 of %2").arg(flow.currentStep + 1).arg(flow.totalSteps)
                Repeater {
                    model: flow.totalSteps
                    Rectangle {
                        required property int index
                        width: 7
                        height: 7
                        radius: 3.5
                        color: index === flow.currentStep ? root.palette.highlight
                                                          : Qt.rgba(0.5, 0.5, 0.5, 0.3)
                    }
                }
            }
            Item {
                Layout.fillWidth: true
            }
            RowLayout {
                spacing: 12
                Button {
                    objectName: "backButton"
                    visible: flow.currentStep >= 1
                    text: qsTr("Back")
                    onClicked: flow.back()
                }
                ProminentButton {
                    objectName: "continueButton"
                    text: flow.currentStep < flow.totalSteps - 1 ? qsTr("Continue") : qsTr("Get Started")
                    onClicked: root.advance()
                }
            }
        }
    }
}
