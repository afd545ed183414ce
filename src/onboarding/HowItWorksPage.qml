import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

ColumnLayout {
    id: page

    readonly property string copyKeys: KeyNames.shortcut("\u2318C")

    width: parent ? parent.width : implicitWidth
    spacing: 24

    Label {
        id: heading
        Layout.alignment: Qt.AlignHCenter
        text: qsTr("How It Works")
        font.pixelSize: SettingsStyle.largeTitle
        font.bold: true
    }
    ColumnLayout {
        Layout.fillWidth: true
        Layout.leftMargin: 40
        Layout.rightMargin: 40
        spacing: 20

        Repeater {
            model: [
                { symbol: "1.circle.fill", title: qsTr("Copy some text"),
                  text: qsTr("Select and copy (%1) any text -- a message, email, note, anything.").arg(page.copyKeys) },
                { symbol: "2.circle.fill", title: qsTr("Press %1 again").arg(page.copyKeys),
                  text: qsTr("Quickly press %1 a second time. The Ravelo panel appears.").arg(page.copyKeys) },
                { symbol: "3.circle.fill", title: qsTr("Pick an action"),
                  text: qsTr("Press a number key or click a button. The AI result appears instantly.") }
            ]
            ColumnLayout {
                id: step
                required property var modelData
                required property int index
                Layout.fillWidth: true
                spacing: 20

                OnboardingSymbol {
                    visible: step.index > 0
                    symbol: "arrow.down"
                    size: 16
                    color: SettingsStyle.tertiary(heading.palette.windowText)
                }
                RowLayout {
                    Layout.fillWidth: true
                    spacing: 14
                    Item {
                        implicitWidth: 32
                        implicitHeight: 24
                        OnboardingSymbol {
                            anchors.centerIn: parent
                            symbol: step.modelData.symbol
                            size: 22
                            color: heading.palette.highlight
                        }
                    }
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 2
                        Label {
                            text: step.modelData.title
                            font.pixelSize: SettingsStyle.headline
                            font.weight: Font.DemiBold
                        }
                        Label {
                            Layout.fillWidth: true
                            text: step.modelData.text
                            wrapMode: Text.Wrap
                            font.pixelSize: SettingsStyle.caption
                            color: SettingsStyle.secondary(palette.windowText)
                        }
                    }
                }
            }
        }
    }
}
