import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl
import Ravelo

// The prompt list: add, edit, delete, reorder (drag a row, or Alt+Up / Alt+Down) and
// restore the defaults. Every change is stored and handed to the quick panel at once.
Item {
    id: tab

    PromptListEditor {
        id: editor
        preferences: AppState.preferences
        onCommitted: stored => AppState.prompts = stored
    }

    Component.onCompleted: editor.load(AppState.prompts)

    Loader {
        anchors.fill: parent
        sourceComponent: editor.editing ? editorView : listView
    }

    Component {
        id: editorView
        PromptEditorInline {
            prompt: editor.editingPrompt
            isNew: editor.isNewPrompt
            onSave: (title, systemPrompt) => editor.saveEditing(title, systemPrompt)
            onCancel: editor.cancelEdit()
        }
    }

    Component {
        id: listView

        ColumnLayout {
            spacing: 0

            ListView {
                id: list
                objectName: "promptList"
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true
                focus: true
                model: editor
                boundsBehavior: Flickable.StopAtBounds
                ScrollBar.vertical: ScrollBar {}

                // Where a dragged row would land, or -1 while nothing is dragged.
                property int dropIndex: -1

                function moveCurrent(by) {
                    const to = currentIndex + by
                    if (currentIndex < 0 || to < 0 || to >= count)
                        return
                    editor.movePrompt(currentIndex, to)
                    currentIndex = to
                }

                Keys.onPressed: event => {
                    const mover = event.modifiers & (Qt.AltModifier | Qt.ControlModifier)
                    if (mover && event.key === Qt.Key_Up) {
                        moveCurrent(-1)
                        event.accepted = true
                    } else if (mover && event.key === Qt.Key_Down) {
                        moveCurrent(1)
                        event.accepted = true
                    } else if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
                        if (currentIndex >= 0)
                            editor.editPrompt(currentIndex)
                        event.accepted = true
                    }
                }

                remove: Transition {
                    NumberAnimation {
                        property: "opacity"
                        to: 0
                        duration: 200
                    }
                }
                displaced: Transition {
                    NumberAnimation {
                        property: "y"
                        duration: 200
                        easing.type: Easing.InOutQuad
                    }
                }

                delegate: PromptRow {
                    listView: list
                    onEditClicked: editor.editPrompt(index)
                    onDeleteClicked: editor.deletePrompt(promptId)
                    onDropped: (from, to) => {
                        editor.movePrompt(from, to)
                        list.currentIndex = to
                    }
                }
            }

            SettingsDivider {
                Layout.fillWidth: true
            }

            RowLayout {
                Layout.margins: 12

                Button {
                    objectName: "addPromptButton"
                    text: qsTr("Add Prompt")
                    icon.source: "icons/plus.svg"
                    icon.width: 14
                    icon.height: 14
                    onClicked: editor.addPrompt()
                }
                Item {
                    Layout.fillWidth: true
                }
                Button {
                    objectName: "resetButton"
                    text: qsTr("Reset to Defaults")
                    onClicked: editor.resetToDefaults()
                }
            }
        }
    }
}
