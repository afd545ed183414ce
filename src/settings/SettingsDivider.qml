import QtQuick
import Ravelo
import QtQuick.Controls.Fusion

// A one-pixel horizontal line in the window's text colour, faint.
Control {
    id: divider

    implicitHeight: 1
    background: Rectangle {
        color: SettingsStyle.divider(divider.palette.windowText)
    }
}
