import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl
import QtQuick.Templates as T
import Ravelo

// The prompt list: add, edit, delete, reorder (drag a row, or Alt+Up / Alt+Down) and
// restore the defaults. Every change is stored and handed to the quick panel at once.
// Up and Down walk the list, Return edits and Delete deletes the current row.
Item {
    id: tab

    PromptListEditor {
        id: editor
        preferences: AppState.preferences
        onCommitted: stored => AppState.prompts = stored
    }

    // The row the list shows as current again when the editor closes; -1 when no editor was
    // open.
    property int editedRow: -1

    function edit(row) {
        editedRow = row
        editor.editPrompt(row)
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
            listEditor: editor
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
                activeFocusOnTab: true
                model: editor
                Accessible.role: Accessible.List
                Accessible.name: qsTr("Prompts")

                function showEditedRow() {
                    if (tab.editedRow < 0) {
                        // The arrows start from the first row.
                        if (currentIndex < 0 && count > 0)
                            currentIndex = 0
                        return
                    }
                    currentIndex = Math.min(tab.editedRow, editor.count - 1)
                    positionViewAtIndex(currentIndex, ListView.Contain)
                    tab.editedRow = -1
                }

                // The rows are there once the view has been laid out.
                Component.onCompleted: {
                    forceActiveFocus()
                    Qt.callLater(showEditedRow)
                }
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
                    } else if (event.key === Qt.Key_Up || event.key === Qt.Key_Down) {
                        // Also from a row's Edit or Delete: the focus goes back to the rows.
                        if (event.key === Qt.Key_Up)
                            decrementCurrentIndex()
                        else
                            incrementCurrentIndex()
                        if (currentItem)
                            currentItem.forceActiveFocus()
                        event.accepted = true
                    } else if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
                        // A focused Edit or Delete is pressed instead (see WindowPane).
                        if (Window.activeFocusItem instanceof T.AbstractButton) {
                            event.accepted = false
                            return
                        }
                        if (currentIndex >= 0)
                            tab.edit(currentIndex)
                        event.accepted = true
                    } else if (event.key === Qt.Key_Delete && currentIndex >= 0) {
                        editor.deletePrompt(currentItem.promptId)
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
                    onEditClicked: tab.edit(index)
                    onDeleteClicked: {
                        editor.deletePrompt(promptId)
                        list.forceActiveFocus()
                    }
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
                    onClicked: {
                        tab.editedRow = editor.count
                        editor.addPrompt()
                    }
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
