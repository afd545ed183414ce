import QtQuick
import QtQuick.Controls.Basic

// A thin overlay scroll bar for the panel's dark card, shown faintly whenever there is
// something to scroll and brighter while in use.
ScrollBar {
    id: bar

    policy: size < 1 ? ScrollBar.AsNeeded : ScrollBar.AlwaysOff
    padding: 2
    minimumSize: 0.1

    contentItem: Rectangle {
        implicitWidth: 6
        radius: 3
        color: Qt.rgba(1, 1, 1, bar.pressed ? 0.5 : bar.active || bar.hovered ? 0.35 : 0.2)
        opacity: bar.size < 1 ? 1 : 0

        Behavior on color {
            ColorAnimation {
                duration: 200
            }
        }
    }
    states: []
    transitions: []
    background: Item {}
}
