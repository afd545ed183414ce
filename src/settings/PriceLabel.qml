import QtQuick
import Ravelo
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl

// A small icon followed by a caption, in the secondary text colour.
Label {
    id: label

    property url iconSource

    leftPadding: 16
    font.pixelSize: SettingsStyle.caption
    color: SettingsStyle.secondary(palette.windowText)

    IconImage {
        anchors.verticalCenter: parent.verticalCenter
        width: 12
        height: 12
        sourceSize: Qt.size(12, 12)
        source: label.iconSource
        color: label.color
    }
}
