import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

ColumnLayout {
    id: page

    width: parent ? parent.width : implicitWidth
    spacing: 20

    OnboardingSymbol {
        symbol: "bolt.fill"
        size: 56
        color: label.palette.highlight
        Layout.bottomMargin: 4
    }
    Label {
        id: label
        Layout.alignment: Qt.AlignHCenter
        text: qsTr("Welcome to Ravelo")
        font.pixelSize: SettingsStyle.largeTitle
        font.bold: true
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        text: qsTr("Your clipboard, supercharged with AI.")
        font.pixelSize: SettingsStyle.title3
        color: SettingsStyle.secondary(palette.windowText)
    }
    ColumnLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 12
        Layout.leftMargin: 60
        Layout.rightMargin: 60
        spacing: 12

        Repeater {
            model: [
                { symbol: "doc.on.clipboard", text: qsTr("Copy text from anywhere") },
                { symbol: "command", text: qsTr("Press %1 twice to open Ravelo").arg(KeyNames.shortcut("\u2318C")) },
                { symbol: "sparkles", text: qsTr("Translate, fix grammar, or transform instantly") }
            ]
            RowLayout {
                id: feature
                required property var modelData
                spacing: 12
                Item {
                    implicitWidth: 28
                    implicitHeight: 20
                    OnboardingSymbol {
                        anchors.centerIn: parent
                        symbol: feature.modelData.symbol
                        size: 18
                        color: label.palette.highlight
                    }
                }
                Label {
                    text: feature.modelData.text
                }
            }
        }
    }
}
