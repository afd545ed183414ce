import QtQuick
import Ravelo
import QtQuick.Layouts
import QtQuick.Controls.Fusion
import QtQuick.Controls.impl

// One prompt of the Prompts tab: number, title, two lines of the system prompt, its hotkey
// when it has one, and the edit and delete buttons. The row can be dragged to another place in the list.
Control {
    id: row

    required property int index
    required property string promptId
    required property int number
    required property string title
    required property string systemPrompt
    required property string hotkey
    required property ListView listView

    signal editClicked
    signal deleteClicked
    signal dropped(int from, int to)

    readonly property bool dragging: dragArea.dragging
    readonly property bool current: ListView.isCurrentItem && listView.activeFocus

    width: ListView.view ? ListView.view.width : implicitWidth
    Accessible.role: Accessible.ListItem
    Accessible.name: qsTr("%1. %2").arg(row.number).arg(row.title)
    Accessible.description: row.systemPrompt
    Accessible.selected: ListView.isCurrentItem
    topPadding: 6
    bottomPadding: 6
    leftPadding: 8
    rightPadding: 8
    z: dragging ? 2 : 0
    transform: Translate {
        y: dragArea.offset
    }

    background: Rectangle {
        color: row.dragging || row.current ? Qt.rgba(row.palette.highlight.r, row.palette.highlight.g,
                                                    row.palette.highlight.b, 0.18)
                                           : "transparent"
        border.width: row.dragging ? 1 : 0
        border.color: row.palette.highlight
        radius: 4

        Rectangle {
            // The line a dragged row is dropped on.
            visible: row.listView.dropIndex === row.index && !row.dragging
            width: parent.width
            height: 2
            color: row.palette.highlight
            y: row.listView.dropIndex > dragArea.sourceIndex ? parent.height - 1 : -1
        }
    }

    MouseArea {
        id: dragArea

        property bool dragging: false
        property real pressY: 0
        property real offset: 0
        property int sourceIndex: -1

        anchors.fill: parent
        cursorShape: dragging ? Qt.ClosedHandCursor : Qt.ArrowCursor

        function targetIndex() {
            const centre = row.mapToItem(row.listView.contentItem, 0, row.height / 2).y
            const at = row.listView.indexAt(1, centre)
            if (at >= 0)
                return at
            return centre < 0 ? 0 : row.listView.count - 1
        }

        onPressed: mouse => {
            pressY = mapToItem(row.listView, mouse.x, mouse.y).y
            sourceIndex = row.index
            row.listView.currentIndex = row.index
            row.listView.forceActiveFocus()
        }
        onPositionChanged: mouse => {
            const y = mapToItem(row.listView, mouse.x, mouse.y).y
            if (!dragging && Math.abs(y - pressY) > 6)
                dragging = true
            if (dragging) {
                offset = y - pressY
                row.listView.dropIndex = targetIndex()
            }
        }
        onReleased: {
            if (dragging) {
                const to = targetIndex()
                offset = 0
                dragging = false
                row.listView.dropIndex = -1
                if (to !== sourceIndex)
                    row.dropped(sourceIndex, to)
            }
        }
        onCanceled: {
            offset = 0
            dragging = false
            row.listView.dropIndex = -1
        }
        onDoubleClicked: row.editClicked()
    }

    contentItem: RowLayout {
        spacing: 8

        IconImage {
            source: "icons/line.3.horizontal.svg"
            sourceSize: Qt.size(14, 14)
            color: SettingsStyle.tertiary(row.palette.windowText)
        }
        Label {
            objectName: "number"
            text: row.number
            Layout.preferredWidth: 24
            horizontalAlignment: Text.AlignHCenter
            font.pixelSize: SettingsStyle.headline
            font.weight: Font.DemiBold
            color: SettingsStyle.secondary(row.palette.windowText)
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Label {
                Layout.fillWidth: true
                text: row.title
                elide: Text.ElideRight
                font.weight: Font.Medium
            }
            Label {
                objectName: "systemPromptPreview"
                Layout.fillWidth: true
                text: row.systemPrompt
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
                font.pixelSize: SettingsStyle.caption
                color: SettingsStyle.secondary(row.palette.windowText)
            }
        }
        Label {
            objectName: "hotkey"
            visible: row.hotkey.length > 0
            text: row.hotkey
            font.pixelSize: SettingsStyle.caption
            color: SettingsStyle.secondary(row.palette.windowText)
            Accessible.name: qsTr("Hotkey: %1").arg(row.hotkey)
        }
        ToolButton {
            objectName: "editButton"
            icon.source: "icons/pencil.svg"
            icon.width: 15
            icon.height: 15
            // Only the current row's buttons are on the Tab path, after the list itself.
            focusPolicy: row.ListView.isCurrentItem ? Qt.TabFocus : Qt.NoFocus
            Accessible.name: qsTr("Edit %1").arg(row.title)
            onClicked: row.editClicked()
            ToolTip.visible: hovered
            ToolTip.delay: 600
            ToolTip.text: qsTr("Edit")
        }
        ToolButton {
            objectName: "deleteButton"
            icon.source: "icons/trash.svg"
            icon.width: 15
            icon.height: 15
            icon.color: "#d93a32"
            focusPolicy: row.ListView.isCurrentItem ? Qt.TabFocus : Qt.NoFocus
            Accessible.name: qsTr("Delete %1").arg(row.title)
            onClicked: row.deleteClicked()
            ToolTip.visible: hovered
            ToolTip.delay: 600
            ToolTip.text: qsTr("Delete")
        }
    }
}
