import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl

// The default action of a window: filled with the accent colour while it is enabled.
Button {
    id: control

    readonly property color accent: palette.highlight
    // Faded while disabled, so that it does not read as a plain button that can be pressed.
    opacity: enabled ? 1 : 0.45

    icon.color: enabled ? palette.highlightedText : palette.buttonText

    background: Rectangle {
        implicitWidth: 80
        implicitHeight: 24
        radius: 3
        color: !control.enabled ? control.palette.button
                                : control.down ? Qt.darker(control.accent, 1.15)
                                               : control.hovered ? Qt.lighter(control.accent, 1.08)
                                                                 : control.accent
        border.width: 1
        border.color: control.enabled ? Qt.darker(control.accent, 1.25) : control.palette.mid
    }

    contentItem: IconLabel {
        spacing: control.spacing
        mirrored: control.mirrored
        display: control.display
        icon: control.icon
        text: control.text
        font: control.font
        color: control.enabled ? control.palette.highlightedText : control.palette.buttonText
    }

    // Apart from the button's own accent-coloured edge.
    FocusRing {
        visible: control.visualFocus
        spread: 4
    }
}
