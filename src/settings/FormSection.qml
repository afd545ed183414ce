import QtQuick
import Ravelo
import QtQuick.Layouts
import QtQuick.Controls.Fusion

// One group of a settings form: an optional header above a rounded box whose rows are
// the section's content.
ColumnLayout {
    id: section

    property string title
    default property alias content: rows.data

    spacing: 6

    Label {
        visible: section.title !== ""
        text: section.title
        font.pixelSize: SettingsStyle.headline
        font.weight: Font.DemiBold
        leftPadding: 4
    }

    Frame {
        id: frame
        Layout.fillWidth: true
        padding: 12
        background: Rectangle {
            radius: 7
            color: Qt.tint(frame.palette.window, SettingsStyle.wash(frame.palette.windowText))
            border.width: 1
            border.color: SettingsStyle.divider(frame.palette.windowText)
        }

        ColumnLayout {
            id: rows
            width: parent.width
            spacing: 8
        }
    }
}
