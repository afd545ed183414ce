import QtQuick

// A rounded box filled with a gradient from its top-leading to its bottom-trailing corner,
// with a one-pixel border inside its edge.
Canvas {
    id: box

    property real radius: 8
    property color startColor
    property color endColor
    property color borderColor

    onStartColorChanged: requestPaint()
    onEndColorChanged: requestPaint()
    onBorderColorChanged: requestPaint()
    onWidthChanged: requestPaint()
    onHeightChanged: requestPaint()

    function roundedRect(ctx, x, y, w, h, r) {
        ctx.beginPath()
        ctx.moveTo(x + r, y)
        ctx.arcTo(x + w, y, x + w, y + h, r)
        ctx.arcTo(x + w, y + h, x, y + h, r)
        ctx.arcTo(x, y + h, x, y, r)
        ctx.arcTo(x, y, x + w, y, r)
        ctx.closePath()
    }

    onPaint: {
        const ctx = getContext("2d")
        ctx.reset()
        if (width <= 0 || height <= 0)
            return
        const gradient = ctx.createLinearGradient(0, 0, width, height)
        gradient.addColorStop(0, startColor)
        gradient.addColorStop(1, endColor)
        roundedRect(ctx, 0, 0, width, height, radius)
        ctx.fillStyle = gradient
        ctx.fill()
        roundedRect(ctx, 0.5, 0.5, width - 1, height - 1, radius - 0.5)
        ctx.lineWidth = 1
        ctx.strokeStyle = borderColor
        ctx.stroke()
    }
}
