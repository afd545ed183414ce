import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl
import QtQuick.Templates as T
import Ravelo

// Edits one prompt's title, system prompt and global hotkey in place of the list. "Save"
// (Return, or Ctrl+Return inside the system prompt) needs both texts; Esc, "Cancel" and "Back"
// leave without a change.
ColumnLayout {
    id: editorRoot

    required property prompt prompt
    required property bool isNew
    // Holds the hotkey being edited until the prompt is saved.
    required property PromptListEditor listEditor
    property bool recordingHotkey: false
    property bool recordingFromKeyboard: false

    // The prompt's id and number stay as they came in; only the two texts change.
    signal save(string title, string systemPrompt)
    signal cancel

    readonly property bool canSave: titleField.text.length > 0 && systemPromptArea.text.length > 0

    function trySave() {
        if (!canSave)
            return
        save(titleField.text, systemPromptArea.text)
    }

    spacing: 0

    Shortcut {
        sequence: "Esc"
        onActivated: editorRoot.cancel()
    }
    Shortcut {
        sequences: ["Return", "Enter", "Ctrl+Return", "Ctrl+Enter"]
        // Return on a focused button presses that button instead (see WindowPane).
        enabled: editorRoot.canSave
                 && !(editorRoot.Window.activeFocusItem instanceof T.AbstractButton)
        onActivated: editorRoot.trySave()
    }

    ColumnLayout {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.margins: 16
        spacing: 12

        RowLayout {
            Layout.fillWidth: true

            ToolButton {
                objectName: "backButton"
                text: qsTr("Back")
                icon.source: "icons/chevron.left.svg"
                icon.width: 12
                icon.height: 12
                onClicked: editorRoot.cancel()
            }
            Item {
                Layout.fillWidth: true
            }
            Label {
                objectName: "header"
                text: editorRoot.isNew ? qsTr("New Prompt") : qsTr("Edit Prompt")
                font.pixelSize: SettingsStyle.headline
                font.weight: Font.DemiBold
            }
            Item {
                Layout.fillWidth: true
            }
            Item {
                // Balances the Back button so that the header stays centred.
                implicitWidth: 50
                implicitHeight: 1
            }
        }

        TextField {
            id: titleField
            objectName: "titleField"
            Layout.fillWidth: true
            placeholderText: qsTr("Title")
            text: editorRoot.prompt.title
            focus: true
            Accessible.name: qsTr("Title")
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 4

            Label {
                text: qsTr("System Prompt")
                font.pixelSize: SettingsStyle.caption
                color: SettingsStyle.secondary(palette.windowText)
            }
            ScrollView {
                id: scroller
                Layout.fillWidth: true
                Layout.fillHeight: true
                contentWidth: availableWidth

                TextArea {
                    id: systemPromptArea
                    objectName: "systemPromptArea"
                    text: editorRoot.prompt.systemPrompt
                    wrapMode: TextEdit.Wrap
                    textFormat: TextEdit.PlainText
                    Accessible.name: qsTr("System Prompt")
                    // Tab leaves the text for the next control instead of typing a tab.
                    Keys.onTabPressed: nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason)
                    Keys.onBacktabPressed: nextItemInFocusChain(false).forceActiveFocus(
                                               Qt.BacktabFocusReason)
                    background: Rectangle {
                        color: systemPromptArea.palette.base
                        radius: 4
                        border.width: 1
                        border.color: systemPromptArea.activeFocus
                                      ? systemPromptArea.palette.highlight
                                      : Qt.rgba(systemPromptArea.palette.windowText.r,
                                                systemPromptArea.palette.windowText.g,
                                                systemPromptArea.palette.windowText.b, 0.2)
                    }
                }
            }
        }

        Item {
            Layout.fillWidth: true
            implicitHeight: hotkeyRow.implicitHeight

            // Behind the row: takes the keyboard while recording.
            HotkeyRecorder {
                objectName: "promptHotkeyRecorder"
                anchors.fill: parent
                recording: editorRoot.recordingHotkey
                onRecorded: (keyCode, modifiers) => {
                    editorRoot.listEditor.recordHotkey(keyCode, modifiers)
                    editorRoot.recordingHotkey = false
                    hotkeyButton.forceActiveFocus(editorRoot.recordingFromKeyboard ? Qt.TabFocusReason
                                                                                   : Qt.OtherFocusReason)
                }
            }

            RowLayout {
                id: hotkeyRow
                anchors.fill: parent

                Label {
                    text: qsTr("Hotkey:")
                }
                Item {
                    Layout.fillWidth: true
                }
                Button {
                    id: hotkeyButton
                    objectName: "promptHotkeyButton"
                    text: editorRoot.recordingHotkey ? qsTr("Press keys\u2026")
                                                     : editorRoot.listEditor.editingHotkey.length > 0
                                                       ? editorRoot.listEditor.editingHotkey
                                                       : qsTr("Not set")
                    Layout.minimumWidth: 120
                    Accessible.name: qsTr("Hotkey: %1").arg(text)
                    onClicked: {
                        editorRoot.recordingFromKeyboard = visualFocus
                        editorRoot.recordingHotkey = !editorRoot.recordingHotkey
                    }
                }
                Button {
                    objectName: "promptHotkeyClearButton"
                    visible: editorRoot.listEditor.editingHotkey.length > 0
                    text: qsTr("Clear")
                    flat: true
                    palette.buttonText: "#d93a32"
                    onClicked: editorRoot.listEditor.clearHotkey()
                }
            }
        }
        SettingsCaption {
            objectName: "promptHotkeyConflict"
            visible: text.length > 0
            text: editorRoot.listEditor.hotkeyConflict
            color: "#d93a32"
        }
        SettingsCaption {
            objectName: "promptHotkeyCaption"
            text: editorRoot.listEditor.hotkeysAvailable
                  ? qsTr("Pressing it anywhere opens the panel with the copied text and runs this prompt at once.")
                  : qsTr("This desktop gives Ravelo no hotkeys of its own: the hotkey is kept, but pressing it does nothing here.")
        }
    }

    SettingsDivider {
        Layout.fillWidth: true
    }

    RowLayout {
        Layout.margins: 12

        Button {
            objectName: "cancelButton"
            text: qsTr("Cancel")
            onClicked: editorRoot.cancel()
        }
        Item {
            Layout.fillWidth: true
        }
        ProminentButton {
            objectName: "saveButton"
            text: qsTr("Save")
            enabled: editorRoot.canSave
            onClicked: editorRoot.trySave()
        }
    }
}
