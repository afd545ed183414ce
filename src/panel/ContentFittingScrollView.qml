import QtQuick
import QtQuick.Controls.Basic

// A vertical scroll container as tall as its content, up to `maxHeight`; taller content
// scrolls. Children are laid out at the container's width and measured by the extent of
// their bounding rectangle, which never depends on the container's own height, so the
// measurement cannot loop.
Item {
    id: root

    property real maxHeight: 250
    // The last measured height of the content; the container starts at 24 before any
    // measurement and follows every change with a short ease-out.
    property real contentHeight: 24
    readonly property real measuredHeight: holder.childrenRect.y + holder.childrenRect.height
    readonly property bool scrollable: flickable.contentHeight > flickable.height + 0.5
    readonly property alias flickable: flickable
    default property alias content: holder.data

    implicitHeight: Math.min(contentHeight, maxHeight)

    Behavior on contentHeight {
        id: growth

        NumberAnimation {
            duration: 150
            easing.type: Easing.Bezier
            easing.bezierCurve: [0, 0, 0.58, 1, 1, 1]
        }
    }

    // Takes the content's height at once, without easing: for a container about to be shown.
    function settle() {
        growth.enabled = false
        contentHeight = measuredHeight
        growth.enabled = true
    }

    onMeasuredHeightChanged: contentHeight = measuredHeight
    Component.onCompleted: contentHeight = measuredHeight

    Flickable {
        id: flickable

        anchors.fill: parent
        clip: true
        contentWidth: width
        contentHeight: root.measuredHeight
        flickableDirection: Flickable.VerticalFlick
        boundsBehavior: Flickable.StopAtBounds

        ScrollBar.vertical: PanelScrollBar {}

        Item {
            id: holder

            width: flickable.width
            height: root.measuredHeight
        }
    }
}
