import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

ColumnLayout {
    id: page

    required property OnboardingFlow flow

    width: parent ? parent.width : implicitWidth
    spacing: 20

    Connections {
        target: page.flow
        // Typing can start as soon as the page shows; the page is enabled by then.
        function onCurrentStepChanged() {
            if (page.flow.currentStep === 2)
                Qt.callLater(keyField.forceActiveFocus)
        }
    }

    OnboardingSymbol {
        symbol: "key.fill"
        size: 40
        color: heading.palette.highlight
    }
    Label {
        id: heading
        Layout.alignment: Qt.AlignHCenter
        text: "Connect to OpenAI"
        font.pixelSize: SettingsStyle.largeTitle
        font.bold: true
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        horizontalAlignment: Text.AlignHCenter
        text: "Ravelo uses the OpenAI API to process your text.\nYou'll need an API key to get started."
        color: SettingsStyle.secondary(palette.windowText)
    }
    ColumnLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.preferredWidth: 380
        Layout.maximumWidth: 380
        spacing: 8

        Label {
            text: "API Key"
            font.pixelSize: SettingsStyle.headline
            font.weight: Font.DemiBold
        }
        TextField {
            id: keyField
            objectName: "apiKeyField"
            Layout.fillWidth: true
            echoMode: TextInput.Password
            placeholderText: "sk-..."
            font.family: "monospace"
            text: page.flow.apiKeyInput
            onTextEdited: page.flow.apiKeyInput = text
        }
        Label {
            objectName: "apiKeyLink"
            visible: ModelCatalogue.apiKeyHost !== ""
            textFormat: Text.StyledText
            text: "<a href=\"" + ModelCatalogue.apiKeyPage + "\">Get your API key from "
                  + ModelCatalogue.apiKeyHost + "</a>"
            linkColor: palette.link
            font.pixelSize: SettingsStyle.caption
            onLinkActivated: link => Qt.openUrlExternally(link)

            HoverHandler {
                cursorShape: Qt.PointingHandCursor
            }
        }
    }
    RowLayout {
        objectName: "keyWarning"
        Layout.alignment: Qt.AlignHCenter
        visible: page.flow.showsKeyWarning
        spacing: 6

        OnboardingSymbol {
            symbol: "exclamationmark.triangle"
            size: 13
            color: warningText.color
        }
        Label {
            id: warningText
            text: "API keys usually start with \"sk-\""
            font.pixelSize: SettingsStyle.caption
            color: "#e8870e"
        }
    }
}
