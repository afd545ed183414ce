import QtQuick

// A small indeterminate progress indicator: an arc that turns.
Item {
    id: spinner

    property color color: "white"
    property bool running: true

    implicitWidth: 16
    implicitHeight: 16

    Canvas {
        id: arc

        anchors.fill: parent
        onPaint: {
            const ctx = getContext("2d")
            ctx.reset()
            ctx.lineWidth = 2
            ctx.lineCap = "round"
            ctx.strokeStyle = Qt.rgba(spinner.color.r, spinner.color.g, spinner.color.b, 0.25)
            ctx.beginPath()
            ctx.arc(width / 2, height / 2, width / 2 - 1.5, 0, 2 * Math.PI)
            ctx.stroke()
            ctx.strokeStyle = spinner.color
            ctx.beginPath()
            ctx.arc(width / 2, height / 2, width / 2 - 1.5, -Math.PI / 2, Math.PI / 3)
            ctx.stroke()
        }

        RotationAnimator on rotation {
            from: 0
            to: 360
            duration: 900
            loops: Animation.Infinite
            running: spinner.running && spinner.visible
        }
    }
}
