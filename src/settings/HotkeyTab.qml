import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

// The triggers: double copy on or off, the recorded global hotkey, and, where the system
// has such a permission and Ravelo lacks it, the request for the Accessibility permission.
Item {
    id: tab

    // Asks for the Accessibility permission; null where the permission is automatic.
    property var trust: null
    readonly property string copyKeys: KeyNames.shortcut("\u2318C")
    // X11 has no such permission: its trust is always granted, and nothing is asked for.
    readonly property bool permissionMissing: trust !== null && !trust.isTrusted()
    property bool recordingFromKeyboard: false
    // The add and remove buttons stand in for each other: the keyboard focus goes over with
    // the change when the keyboard pressed one.
    property bool desktopShortcutFromKeyboard: false

    function passDesktopShortcutFocus(button) {
        if (button.visible && button.enabled && desktopShortcutFromKeyboard) {
            desktopShortcutFromKeyboard = false
            button.forceActiveFocus(Qt.TabFocusReason)
        }
    }

    HotkeySettings {
        id: settings
        objectName: "hotkeySettings"
        preferences: AppState.preferences
    }

    Component.onCompleted: settings.load()

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 14

        FormSection {
            title: qsTr("Trigger Method")
            Layout.fillWidth: true

            Switch {
                objectName: "doubleCopySwitch"
                Layout.fillWidth: true
                text: qsTr("%1, C (double copy)").arg(tab.copyKeys)
                checked: settings.useDoubleCopy
                onToggled: settings.useDoubleCopy = checked
            }
            SettingsCaption {
                objectName: "doubleCopyCaption"
                text: qsTr("Press %1 twice quickly to open the Ravelo panel.").arg(tab.copyKeys)
                      + (tab.permissionMissing ? " " + qsTr("Requires Accessibility permission.") : "")
            }
        }

        FormSection {
            title: qsTr("Custom Global Hotkey")
            Layout.fillWidth: true

            Item {
                Layout.fillWidth: true
                implicitHeight: shortcutRow.implicitHeight

                // Behind the row: takes the keyboard while recording.
                HotkeyRecorder {
                    id: recorder
                    objectName: "recorder"
                    anchors.fill: parent
                    recording: settings.isRecording
                    onRecorded: (keyCode, modifiers) => {
                        settings.recordHotkey(keyCode, modifiers)
                        // The focus goes back to the button, with its ring when the keyboard
                        // started the recording.
                        recordButton.forceActiveFocus(tab.recordingFromKeyboard ? Qt.TabFocusReason
                                                                                : Qt.OtherFocusReason)
                    }
                }

                RowLayout {
                    id: shortcutRow
                    anchors.fill: parent

                    Label {
                        text: qsTr("Shortcut:")
                    }
                    Item {
                        Layout.fillWidth: true
                    }
                    Button {
                        id: recordButton
                        objectName: "recordButton"
                        text: settings.isRecording ? qsTr("Press keys\u2026") : settings.hotkeyDisplay
                        Layout.minimumWidth: 120
                        Accessible.name: qsTr("Shortcut: %1").arg(text)
                        onClicked: {
                            tab.recordingFromKeyboard = visualFocus
                            settings.isRecording = !settings.isRecording
                        }
                    }
                    Button {
                        objectName: "clearButton"
                        visible: settings.hasHotkey
                        text: qsTr("Clear")
                        flat: true
                        palette.buttonText: "#d93a32"
                        onClicked: settings.clearHotkey()
                    }
                }
            }
            SettingsCaption {
                objectName: "conflictCaption"
                visible: text.length > 0
                text: settings.conflictText
                color: "#d93a32"
            }
            SettingsCaption {
                text: qsTr("Set a custom keyboard shortcut as an alternative trigger. Works alongside double-copy if both are enabled.")
            }
            SettingsCaption {
                objectName: "hotkeyPath"
                text: settings.hotkeyPathText
            }

            // GNOME before 48 gives applications no global shortcut: Ravelo offers to add
            // GNOME's own custom shortcut running "ravelo trigger" with the recorded keys.
            RowLayout {
                visible: settings.offersDesktopShortcut
                Layout.fillWidth: true
                spacing: 8

                readonly property bool busy: settings.desktopShortcutState === HotkeySettings.Working
                                             || settings.desktopShortcutState === HotkeySettings.Checking

                Button {
                    objectName: "addDesktopShortcutButton"
                    visible: settings.desktopShortcutState !== HotkeySettings.Current
                    enabled: settings.canAddDesktopShortcut
                    text: settings.desktopShortcutState === HotkeySettings.OutOfDate
                          ? qsTr("Update GNOME Shortcut") : qsTr("Add to GNOME Shortcuts")
                    onClicked: {
                        tab.desktopShortcutFromKeyboard = visualFocus
                        settings.addDesktopShortcut()
                    }
                    onVisibleChanged: tab.passDesktopShortcutFocus(this)
                    onEnabledChanged: tab.passDesktopShortcutFocus(this)
                }
                Button {
                    objectName: "removeDesktopShortcutButton"
                    visible: settings.desktopShortcutState === HotkeySettings.Current
                             || settings.desktopShortcutState === HotkeySettings.OutOfDate
                    enabled: !parent.busy
                    text: qsTr("Remove from GNOME")
                    onClicked: {
                        tab.desktopShortcutFromKeyboard = visualFocus
                        settings.removeDesktopShortcut()
                    }
                    onVisibleChanged: tab.passDesktopShortcutFocus(this)
                    onEnabledChanged: tab.passDesktopShortcutFocus(this)
                }
                Item {
                    Layout.fillWidth: true
                }
            }
            SettingsCaption {
                objectName: "desktopShortcutText"
                visible: settings.offersDesktopShortcut && text.length > 0
                text: settings.desktopShortcutText
            }
        }

        FormSection {
            objectName: "permissionSection"
            visible: tab.permissionMissing
            Layout.fillWidth: true

            Button {
                objectName: "accessibilityButton"
                text: qsTr("Request Accessibility Permission")
                onClicked: {
                    if (tab.trust && !tab.trust.isTrusted())
                        tab.trust.requestTrust()
                }
            }
            SettingsCaption {
                text: qsTr("Ravelo needs Accessibility access to detect global keyboard shortcuts.")
            }
        }

        Item {
            Layout.fillHeight: true
        }
    }
}
