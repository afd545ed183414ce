import QtQuick
import QtQuick.Controls.Fusion
import Ravelo

// A caption holding one link that the keyboard reaches as well: Tab stops on it and Return
// or Space opens `link`. Screen readers see a link named by `Accessible.name`, which the
// user of the label sets to the plain text.
Label {
    id: label

    required property url link

    function open() {
        Qt.openUrlExternally(label.link)
    }

    activeFocusOnTab: true
    textFormat: Text.StyledText
    Accessible.role: Accessible.Link
    Accessible.onPressAction: open()
    Keys.onShortcutOverride: event => event.accepted = event.key === Qt.Key_Return
                                                       || event.key === Qt.Key_Enter
    Keys.onReturnPressed: open()
    Keys.onEnterPressed: open()
    Keys.onSpacePressed: open()

    FocusRing {
        visible: label.activeFocus
    }
}
