import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

ColumnLayout {
    id: page

    required property OnboardingFlow flow
    // A stored base address means a server of the user's own choosing instead of OpenAI.
    property bool otherServer: false

    width: parent ? parent.width : implicitWidth
    spacing: otherServer ? 12 : 20

    function chooseServer(other) {
        if (other === otherServer || !flow.preferences)
            return
        otherServer = other
        // Choosing another server starts from the most common local one.
        flow.preferences.setValue("openai_base_url", other ? serverForm.presets[0].address : "")
        serverForm.load()
    }

    Component.onCompleted: {
        if (!flow.preferences)
            return
        const base = flow.preferences.value("openai_base_url")
        otherServer = base !== undefined && base.trim() !== ""
        serverForm.load()
    }

    Connections {
        target: page.flow
        // Typing can start as soon as the page shows; the page is enabled by then.
        function onCurrentStepChanged() {
            if (page.flow.currentStep === 2)
                Qt.callLater(page.otherServer ? serverForm.focusAddress : keyField.forceActiveFocus)
        }
    }

    OnboardingSymbol {
        visible: !page.otherServer
        symbol: "key.fill"
        size: 40
        color: heading.palette.highlight
    }
    Label {
        id: heading
        Layout.alignment: Qt.AlignHCenter
        text: page.otherServer ? qsTr("Connect to a Server") : qsTr("Connect to OpenAI")
        font.pixelSize: SettingsStyle.largeTitle
        font.bold: true
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        horizontalAlignment: Text.AlignHCenter
        text: page.otherServer
              ? qsTr("Ravelo sends your text to the server you choose.\nServers on this computer usually need no key.")
              : qsTr("Ravelo uses the OpenAI API to process your text.\nYou'll need an API key to get started.")
        color: SettingsStyle.secondary(palette.windowText)
    }
    ComboBox {
        objectName: "serverChoice"
        Layout.alignment: Qt.AlignHCenter
        Layout.preferredWidth: 280
        model: ["OpenAI", qsTr("Another OpenAI-compatible server")]
        currentIndex: page.otherServer ? 1 : 0
        Accessible.name: qsTr("Server")
        onActivated: index => page.chooseServer(index === 1)
    }
    ServerForm {
        id: serverForm
        objectName: "serverForm"
        visible: page.otherServer
        Layout.alignment: Qt.AlignHCenter
        Layout.preferredWidth: 460
        labelWidth: 70
        store: page.flow.preferences
        apiKey: page.flow.apiKeyInput
        onApiKeyEdited: key => page.flow.apiKeyInput = key
    }
    ColumnLayout {
        visible: !page.otherServer
        Layout.alignment: Qt.AlignHCenter
        Layout.preferredWidth: 380
        Layout.maximumWidth: 380
        spacing: 8

        Label {
            text: qsTr("API Key")
            font.pixelSize: SettingsStyle.headline
            font.weight: Font.DemiBold
        }
        TextField {
            id: keyField
            objectName: "apiKeyField"
            Layout.fillWidth: true
            echoMode: TextInput.Password
            placeholderText: "sk-..."
            Accessible.name: qsTr("API Key")
            // Qt Quick withholds the name of a password field from screen readers and describes
            // the field by its placeholder whenever they connect: the description says it instead.
            Accessible.description: qsTr("API Key")
            Accessible.onDescriptionChanged: {
                if (Accessible.description !== qsTr("API Key"))
                    Accessible.description = qsTr("API Key")
            }
            font.family: "monospace"
            text: page.flow.apiKeyInput
            onTextEdited: page.flow.apiKeyInput = text
        }
        LinkLabel {
            objectName: "apiKeyLink"
            visible: ModelCatalogue.apiKeyHost !== ""
            link: ModelCatalogue.apiKeyPage
            Accessible.name: qsTr("Get your API key from %1").arg(ModelCatalogue.apiKeyHost)
            text: "<a href=\"" + ModelCatalogue.apiKeyPage + "\">"
                  + qsTr("Get your API key from %1").arg(ModelCatalogue.apiKeyHost) + "</a>"
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
        visible: page.flow.showsKeyWarning && !page.otherServer
        spacing: 6

        OnboardingSymbol {
            symbol: "exclamationmark.triangle"
            size: 13
            color: warningText.color
        }
        Label {
            id: warningText
            text: qsTr("API keys usually start with \"sk-\"")
            font.pixelSize: SettingsStyle.caption
            color: "#e8870e"
        }
    }
}
