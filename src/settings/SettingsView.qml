import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

// The preferences window's content: three tabs over a fixed 520 × 420 area. A new view
// always opens on "General"; each tab is built afresh, and so reads its values anew,
// whenever it is shown.
WindowPane {
    id: root

    // Asks for the Accessibility permission; null where the permission is automatic.
    property var trust: null

    width: 520
    height: 420
    implicitWidth: 520
    implicitHeight: 420

    Shortcut {
        sequences: [StandardKey.Close]
        onActivated: root.Window.window.close()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        TabBar {
            id: tabs
            objectName: "tabs"
            Layout.fillWidth: true

            Repeater {
                model: [
                    { label: qsTr("General"), icon: "icons/gear.svg" },
                    { label: qsTr("Prompts"), icon: "icons/list.number.svg" },
                    { label: qsTr("Hotkey"), icon: "icons/keyboard.svg" }
                ]
                TabButton {
                    required property var modelData
                    text: modelData.label
                    icon.source: modelData.icon
                    icon.width: 16
                    icon.height: 16
                    display: AbstractButton.TextBesideIcon
                }
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: tabs.currentIndex

            Loader {
                objectName: "generalTab"
                active: tabs.currentIndex === 0
                sourceComponent: GeneralTab {}
            }
            Loader {
                objectName: "promptsTab"
                active: tabs.currentIndex === 1
                sourceComponent: PromptsTab {}
            }
            Loader {
                objectName: "hotkeyTab"
                active: tabs.currentIndex === 2
                sourceComponent: HotkeyTab {
                    trust: root.trust
                }
            }
        }
    }
}
