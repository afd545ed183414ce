import QtQuick
import Ravelo

// The copied text and the answer: large, selectable, read-only text fed through `append`
// and `reset`, with a placeholder while it is empty.
TextRunView {
    id: view

    property string placeholder

    color: PanelPalette.primaryText
    selectionColor: PanelPalette.selection
    selectedTextColor: PanelPalette.primaryText
    font.family: PanelPalette.family
    font.pixelSize: 20
    font.weight: Font.Normal
    font.letterSpacing: -0.4
    lineSpacing: 3.87

    Text {
        width: parent.width
        visible: view.empty
        text: view.placeholder
        wrapMode: Text.Wrap
        color: PanelPalette.placeholderText
        font: view.font
    }
}
