import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

// The API key, the model and the server. Every edit is stored at once.
Item {
    id: tab

    readonly property var store: AppState.preferences
    readonly property var models: ModelCatalogue.models
    // The id of the chosen model; one outside the catalogue is typed in by the user.
    property string selectedModel: ModelCatalogue.defaultModel
    property bool customModel: false
    readonly property int catalogueIndex: ModelCatalogue.indexOf(selectedModel)
    readonly property int labelWidth: 96
    // A stored base address means a server of the user's own choosing instead of OpenAI.
    property bool otherServer: false

    function storeModel(id) {
        if (id === selectedModel)
            return
        selectedModel = id
        store.setValue("openai_model", id)
    }

    function showKey(key) {
        apiKeyField.text = key
        serverForm.apiKey = key
    }

    function chooseServer(other) {
        if (other === otherServer)
            return
        otherServer = other
        // Choosing another server starts from the most common local one.
        store.setValue("openai_base_url", other ? serverForm.presets[0].address : "")
        serverForm.load()
        loadModel()
    }

    function loadModel() {
        const model = store.value("openai_model")
        selectedModel = model === undefined ? ModelCatalogue.defaultModel : model
        customModel = catalogueIndex < 0
        if (customModel)
            customModelField.text = selectedModel
    }

    Connections {
        target: tab.store
        // The keyring answers after the tab may have opened.
        function onApiKeyStorageChanged() {
            const key = tab.store.value("openai_api_key")
            if (apiKeyField.text === "" && key !== undefined)
                tab.showKey(key)
        }
    }

    Component.onDestruction: store.saveApiKeyNow()

    Component.onCompleted: {
        const key = store.value("openai_api_key")
        if (key !== undefined && key !== "") {
            showKey(key)
            store.setValue("openai_api_key", key)
        }
        const model = store.value("openai_model")
        if (model !== undefined && model !== selectedModel) {
            selectedModel = model
            store.setValue("openai_model", model)
        }
        customModel = catalogueIndex < 0
        if (customModel)
            customModelField.text = selectedModel
        const base = store.value("openai_base_url")
        otherServer = base !== undefined && base.trim() !== ""
        serverForm.load()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 14

        RowLayout {
            Layout.leftMargin: 4
            Label {
                text: qsTr("Server")
                Layout.preferredWidth: tab.labelWidth
            }
            ComboBox {
                objectName: "serverChoice"
                Layout.fillWidth: true
                model: ["OpenAI", qsTr("Another OpenAI-compatible server")]
                currentIndex: tab.otherServer ? 1 : 0
                Accessible.name: qsTr("Server")
                onActivated: index => tab.chooseServer(index === 1)
            }
        }

        FormSection {
            title: qsTr("OpenAI-compatible server")
            visible: tab.otherServer
            Layout.fillWidth: true

            ServerForm {
                id: serverForm
                objectName: "serverForm"
                Layout.fillWidth: true
                store: tab.store
                labelWidth: tab.labelWidth
                onApiKeyEdited: key => {
                    apiKeyField.text = key
                    tab.store.setValue("openai_api_key", key)
                }
            }
        }

        FormSection {
            title: qsTr("OpenAI API")
            visible: !tab.otherServer
            Layout.fillWidth: true

            RowLayout {
                Label {
                    text: qsTr("API Key")
                    Layout.preferredWidth: tab.labelWidth
                }
                TextField {
                    id: apiKeyField
                    objectName: "apiKeyField"
                    Layout.fillWidth: true
                    echoMode: TextInput.Password
                    Accessible.name: qsTr("API Key")
                    // Qt Quick withholds the name of a password field from screen readers and describes
                    // the field by its placeholder whenever they connect: the description says it instead.
                    Accessible.description: qsTr("API Key")
                    Accessible.onDescriptionChanged: {
                        if (Accessible.description !== qsTr("API Key"))
                            Accessible.description = qsTr("API Key")
                    }
                    onTextEdited: {
                        serverForm.apiKey = text
                        tab.store.setValue("openai_api_key", text)
                    }
                    onActiveFocusChanged: {
                        if (!activeFocus)
                            tab.store.saveApiKeyNow()
                    }
                }
            }

            RowLayout {
                Label {
                    text: qsTr("Model")
                    Layout.preferredWidth: tab.labelWidth
                }
                ComboBox {
                    id: modelPicker
                    objectName: "modelPicker"
                    Layout.fillWidth: true
                    model: tab.models.map(m => m.entryText()).concat([qsTr("Other model\u2026")])
                    currentIndex: tab.customModel ? tab.models.length : tab.catalogueIndex
                    Accessible.name: qsTr("Model")
                    onActivated: index => {
                        if (index < tab.models.length) {
                            tab.customModel = false
                            tab.storeModel(tab.models[index].id)
                        } else {
                            tab.customModel = true
                            customModelField.text = tab.catalogueIndex < 0 ? tab.selectedModel : ""
                            customModelField.forceActiveFocus()
                        }
                    }
                }
            }

            RowLayout {
                visible: tab.customModel
                Label {
                    text: qsTr("Model ID")
                    Layout.preferredWidth: tab.labelWidth
                }
                TextField {
                    id: customModelField
                    objectName: "customModelField"
                    Layout.fillWidth: true
                    placeholderText: qsTr("Any model the server offers, e.g. llama3.1:8b")
                    Accessible.name: qsTr("Model ID")
                    onTextEdited: {
                        const id = text.trim()
                        if (id !== "")
                            tab.storeModel(id)
                    }
                }
            }

            ColumnLayout {
                id: detail
                objectName: "modelDetail"
                readonly property var info: tab.catalogueIndex >= 0 ? tab.models[tab.catalogueIndex] : null
                visible: info !== null
                Layout.leftMargin: tab.labelWidth + 5
                spacing: 4

                Label {
                    text: detail.info ? detail.info.name : ""
                    font.pixelSize: SettingsStyle.callout
                    font.weight: Font.Medium
                }
                RowLayout {
                    spacing: 16
                    PriceLabel {
                        objectName: "inputPrice"
                        iconSource: "icons/arrow.right.circle.svg"
                        text: qsTr("Input: %1").arg(detail.info ? detail.info.inputPrice : "")
                    }
                    PriceLabel {
                        objectName: "outputPrice"
                        iconSource: "icons/arrow.left.circle.svg"
                        text: qsTr("Output: %1").arg(detail.info ? detail.info.outputPrice : "")
                    }
                }
                Label {
                    objectName: "modelNote"
                    text: detail.info ? detail.info.note : ""
                    font.pixelSize: SettingsStyle.caption2
                    color: SettingsStyle.tertiary(palette.windowText)
                }
            }
        }

        ColumnLayout {
            visible: !tab.otherServer
            Layout.fillWidth: true
            Layout.leftMargin: 4
            spacing: 4

            LinkLabel {
                objectName: "apiKeyLink"
                link: ModelCatalogue.apiKeyPage
                Accessible.name: qsTr("Get your API key from %1").arg(ModelCatalogue.apiKeyHost)
                text: qsTr("Get your API key from %1")
                      .arg("<a href=\"" + ModelCatalogue.apiKeyPage + "\">" + ModelCatalogue.apiKeyHost + "</a>")
                linkColor: palette.link
                font.pixelSize: SettingsStyle.caption
                color: SettingsStyle.secondary(palette.windowText)
                onLinkActivated: link => Qt.openUrlExternally(link)

                HoverHandler {
                    cursorShape: parent.hoveredLink !== "" ? Qt.PointingHandCursor : Qt.ArrowCursor
                }
            }
            Label {
                text: qsTr("Prices are per 1M tokens (standard tier). A typical request uses ~500-1500 tokens.")
                font.pixelSize: SettingsStyle.caption2
                color: SettingsStyle.tertiary(palette.windowText)
            }
        }

        Label {
            objectName: "keyStorageLine"
            Layout.fillWidth: true
            Layout.leftMargin: 4
            wrapMode: Text.Wrap
            font.pixelSize: SettingsStyle.caption2
            color: SettingsStyle.tertiary(palette.windowText)
            text: {
                switch (tab.store.apiKeyStorage) {
                case PreferenceStore.Keyring:
                    return qsTr("The API key is kept in the system keyring.")
                case PreferenceStore.ReadingKeyring:
                    return qsTr("Reading the API key from the system keyring…")
                default:
                    return qsTr("No system keyring is available: the API key is kept in %1, readable by you alone.")
                           .arg(tab.store.filePath)
                }
            }
        }

        AutostartToggle {
            objectName: "autostartToggle"
            Layout.fillWidth: true
            Layout.leftMargin: 4
        }

        Item {
            Layout.fillHeight: true
        }
    }
}
