import QtQuick
import QtQuick.Controls.Fusion
import Ravelo

// "Start Ravelo at login": ticks while the autostart entry is there. The entry can change
// outside Ravelo, so it is read again whenever the toggle is shown.
Column {
    id: toggle

    readonly property alias entry: autostart
    readonly property alias checkBox: box

    spacing: 4

    AutostartEntry {
        id: autostart
    }

    CheckBox {
        id: box

        text: qsTr("Start Ravelo at login")
        checked: autostart.enabled
        // A failed write leaves the entry as it was, and the box follows it back.
        onToggled: autostart.enabled = checked
    }

    Label {
        width: toggle.width
        visible: text !== ""
        text: autostart.error
        color: "#c62828"
        wrapMode: Text.Wrap
    }

    Component.onCompleted: autostart.refresh()
    onVisibleChanged: {
        if (visible)
            autostart.refresh()
    }
}
