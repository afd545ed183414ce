import QtQuick
import Ravelo

// The copied text and the answer: large, selectable, read-only text fed through
// `append` and `reset`, with a placeholder while it is empty.
TextEdit {
    id: edit

    property string placeholder
    readonly property bool empty: feed.empty

    function append(fragment) {
        feed.append(fragment)
    }

    function reset(text) {
        feed.reset(text)
    }

    readOnly: true
    selectByMouse: true
    textFormat: TextEdit.PlainText
    wrapMode: TextEdit.Wrap
    color: PanelPalette.primaryText
    selectionColor: PanelPalette.selection
    selectedTextColor: PanelPalette.primaryText
    font.family: PanelPalette.family
    font.pixelSize: 20
    font.weight: Font.Normal
    font.letterSpacing: -0.4

    StreamingText {
        id: feed

        document: edit.textDocument
        lineSpacing: 3.87
    }

    Text {
        width: parent.width
        visible: edit.empty
        text: edit.placeholder
        wrapMode: Text.Wrap
        color: PanelPalette.placeholderText
        font: edit.font
    }
}
