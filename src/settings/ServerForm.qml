import QtQuick
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import Ravelo

// The rows for a server of the user's own choosing: its address (the usual local servers
// one click away), a key that may stay empty, the model picked from what the server lists
// or typed, and "Test connection". Every edit is stored at once.
ColumnLayout {
    id: form

    required property var store
    property int labelWidth: 96
    // The key as shown; the owner stores it when `apiKeyEdited` comes.
    property alias apiKey: keyField.text
    signal apiKeyEdited(string key)

    readonly property var presets: [
        { name: "llama-server", address: "http://127.0.0.1:8080/v1" },
        { name: "Ollama", address: "http://127.0.0.1:11434/v1" },
        { name: "LM Studio", address: "http://127.0.0.1:1234/v1" }
    ]

    spacing: 8

    function load() {
        const base = store.value("openai_base_url")
        addressField.text = base === undefined ? "" : base
        const model = store.value("openai_model")
        modelPicker.editText = model === undefined ? "" : model
    }

    function focusAddress() {
        addressField.forceActiveFocus()
    }

    function storeAddress(address) {
        store.setValue("openai_base_url", address)
    }

    function storeModel(id) {
        const trimmed = id.trim()
        if (trimmed !== "" && trimmed !== store.value("openai_model"))
            store.setValue("openai_model", trimmed)
    }

    ServerModels {
        id: serverModels
        baseUrl: addressField.text
        apiKey: keyField.text
        onModelsChanged: {
            // The picker's list changes under the typed id: keep what is stored.
            const model = form.store.value("openai_model")
            modelPicker.editText = model === undefined ? "" : model
        }
    }

    RowLayout {
        Label {
            text: qsTr("Address")
            Layout.preferredWidth: form.labelWidth
        }
        TextField {
            id: addressField
            objectName: "serverAddressField"
            Layout.fillWidth: true
            placeholderText: "http://127.0.0.1:8080/v1"
            inputMethodHints: Qt.ImhUrlCharactersOnly | Qt.ImhNoAutoUppercase
            Accessible.name: qsTr("Server address")
            onTextEdited: form.storeAddress(text.trim())
        }
    }
    RowLayout {
        Layout.leftMargin: form.labelWidth + 5
        spacing: 6
        Repeater {
            model: form.presets
            Button {
                required property var modelData
                objectName: "preset " + modelData.name
                text: modelData.name
                font.pixelSize: SettingsStyle.caption
                Accessible.description: modelData.address
                ToolTip.visible: hovered
                ToolTip.text: modelData.address
                onClicked: {
                    addressField.text = modelData.address
                    form.storeAddress(modelData.address)
                    serverModels.load()
                }
            }
        }
    }
    RowLayout {
        Label {
            text: qsTr("API Key")
            Layout.preferredWidth: form.labelWidth
        }
        TextField {
            id: keyField
            objectName: "serverKeyField"
            Layout.fillWidth: true
            echoMode: TextInput.Password
            placeholderText: qsTr("Optional: local servers usually need none")
            Accessible.name: qsTr("API Key")
            // Qt Quick withholds the name of a password field from screen readers and describes
            // the field by its placeholder whenever they connect: the description says it instead.
            Accessible.description: qsTr("API Key")
            Accessible.onDescriptionChanged: {
                if (Accessible.description !== qsTr("API Key"))
                    Accessible.description = qsTr("API Key")
            }
            onTextEdited: form.apiKeyEdited(text)
        }
    }
    RowLayout {
        Label {
            text: qsTr("Model")
            Layout.preferredWidth: form.labelWidth
        }
        ComboBox {
            id: modelPicker
            objectName: "serverModelPicker"
            Layout.fillWidth: true
            editable: true
            model: serverModels.models
            Accessible.name: qsTr("Model")
            onActivated: index => form.storeModel(serverModels.models[index])
            onAccepted: form.storeModel(editText)

            Connections {
                target: modelPicker.contentItem
                ignoreUnknownSignals: true
                function onTextEdited() {
                    form.storeModel(modelPicker.contentItem.text)
                }
            }
        }
    }
    Button {
        objectName: "testConnectionButton"
        Layout.leftMargin: form.labelWidth + 5
        text: qsTr("Test connection")
        enabled: !serverModels.loading
        onClicked: serverModels.load()
    }
    Label {
        objectName: "connectionStatus"
        visible: text !== ""
        Layout.leftMargin: form.labelWidth + 5
        Layout.fillWidth: true
        text: serverModels.loading ? qsTr("Connecting\u2026") : serverModels.status
        wrapMode: Text.Wrap
        maximumLineCount: 3
        elide: Text.ElideRight
        font.pixelSize: SettingsStyle.caption
        color: serverModels.failed ? "#d93025" : SettingsStyle.secondary(palette.windowText)
    }
}
