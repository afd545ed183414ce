import QtQuick

// The keyboard focus on a control that draws none of its own: a ring in the accent colour
// around its parent, `spread` outside its edges (inside when negative).
Rectangle {
    property real spread: 2

    anchors.fill: parent
    anchors.margins: -spread
    radius: 4 + spread
    color: "transparent"
    border.width: 2
    border.color: parent.palette.highlight
}
