import QtQuick
import Ravelo
import QtQuick.Layouts
import QtQuick.Controls.Fusion

// An explanation under a setting: small, softer, wrapping to the width it is given.
Label {
    Layout.fillWidth: true
    wrapMode: Text.Wrap
    font.pixelSize: SettingsStyle.caption
    color: SettingsStyle.secondary(palette.windowText)
}
