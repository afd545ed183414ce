import QtQuick
import QtQuick.Controls.Basic

// A thin overlay scroll bar for the panel's dark card, shown while there is something to
// scroll.
ScrollBar {
    id: bar

    policy: size < 1 ? ScrollBar.AsNeeded : ScrollBar.AlwaysOff
    padding: 2
    minimumSize: 0.1

    contentItem: Rectangle {
        implicitWidth: 6
        radius: 3
        color: Qt.rgba(1, 1, 1, bar.pressed ? 0.5 : 0.35)
        opacity: bar.active || bar.hovered ? 1 : 0

        Behavior on opacity {
            NumberAnimation {
                duration: 200
            }
        }
    }
    background: Item {}
}
