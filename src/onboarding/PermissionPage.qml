import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

ColumnLayout {
    id: page

    required property OnboardingFlow flow
    readonly property bool granted: flow.accessibilityGranted
    // Without a tray there is no bolt to look for: starting Ravelo again reaches it.
    property bool trayAvailable: true

    width: parent ? parent.width : implicitWidth
    spacing: 20

    OnboardingSymbol {
        symbol: page.granted ? "checkmark.shield.fill" : "lock.shield"
        size: 40
        color: page.granted ? "#34a853" : heading.palette.highlight
    }
    Label {
        id: heading
        objectName: "permissionTitle"
        Layout.alignment: Qt.AlignHCenter
        text: page.granted ? qsTr("You're All Set!") : qsTr("One More Thing")
        font.pixelSize: SettingsStyle.largeTitle
        font.bold: true
    }

    Label {
        visible: page.granted
        Layout.alignment: Qt.AlignHCenter
        horizontalAlignment: Text.AlignHCenter
        objectName: "readyText"
        text: page.trayAvailable
              ? qsTr("Ravelo is ready to go.\nLook for the bolt icon in your tray.")
              : qsTr("Ravelo is ready to go.\nThis desktop shows no tray, so there is no bolt icon.")
        color: SettingsStyle.secondary(palette.windowText)
    }
    Pane {
        objectName: "trayHint"
        visible: page.granted
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 8
        padding: 16
        background: Rectangle {
            radius: 10
            color: Qt.rgba(0.5, 0.5, 0.5, 0.12)
        }

        RowLayout {
            spacing: 10
            OnboardingSymbol {
                symbol: "menubar.arrow.up.rectangle"
                size: 22
                color: SettingsStyle.secondary(heading.palette.windowText)
            }
            ColumnLayout {
                spacing: 2
                Label {
                    text: page.trayAvailable ? qsTr("Find Ravelo in your tray")
                                             : qsTr("Start Ravelo again for Preferences")
                    font.pixelSize: SettingsStyle.callout
                    font.weight: Font.Medium
                }
                Label {
                    text: page.trayAvailable
                          ? qsTr("Click the bolt icon for Preferences or to quit.")
                          : qsTr("Or run \"ravelo preferences\"; \"ravelo quit\" quits Ravelo.")
                    font.pixelSize: SettingsStyle.caption
                    color: SettingsStyle.secondary(palette.windowText)
                }
            }
        }
    }

    Label {
        visible: !page.granted
        Layout.alignment: Qt.AlignHCenter
        horizontalAlignment: Text.AlignHCenter
        text: qsTr("Ravelo needs Accessibility permission to detect\nthe %1+C shortcut globally.")
              .arg(KeyNames.shortcut("\u2318C"))
        color: SettingsStyle.secondary(palette.windowText)
    }
    ProminentButton {
        objectName: "grantButton"
        visible: !page.granted
        Layout.alignment: Qt.AlignHCenter
        Layout.maximumWidth: 280
        padding: 10
        text: qsTr("Grant Accessibility Access")
        icon.source: "icons/lock.open.svg"
        icon.width: 16
        icon.height: 16
        onClicked: page.flow.requestAccess()
    }
    Label {
        visible: !page.granted
        Layout.alignment: Qt.AlignHCenter
        horizontalAlignment: Text.AlignHCenter
        text: qsTr("System Settings will open.\nAdd Ravelo to the Accessibility list and toggle it on.")
        font.pixelSize: SettingsStyle.caption
        color: SettingsStyle.tertiary(palette.windowText)
    }
}
