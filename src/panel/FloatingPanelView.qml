import QtQuick
import QtQuick.Controls.Basic
import Ravelo

// Everything inside the quick panel: the copied text, the numbered prompts, the one-off
// prompt field, the streamed answer and the close and preferences buttons. It reads
// AppState and reports the user's choices through its signals; the window routes the
// panel's keys itself.
FocusScope {
    id: root

    // Transparent space on every side, where the window's shadows fall; less above the card
    // when it sits close to the top of the screen.
    property int margin: 200
    property int topMargin: margin
    property bool shadowsVisible: true
    // The height of the screen's work area, set by the window: the two text boxes give up
    // height so that the whole panel fits.
    property real availableHeight: 1e6
    // The displayed height of the clipboard box; the answer box is as tall, but never
    // below 80.
    readonly property real inputHeight: clipboardBox.height
    // Everything but the two text boxes, from the card's top to the buttons' bottom.
    readonly property real chromeHeight: clipboardSection.topPadding
                                         + clipboardSection.bottomPadding
                                         + (inputCaption.visible ? inputCaption.height
                                                                   + clipboardSection.spacing : 0)
                                         + stripBand.height + resultSection.topPadding
                                         + resultSection.bottomPadding + resultSection.headerHeight
                                         + resultSection.spacing + copyRow.height
                                         + content.spacing + controlButtons.height
    readonly property real clipboardMaxHeight: {
        const free = availableHeight - chromeHeight
        const height = free / 2 >= 80 ? free / 2 : free - 80
        return Math.max(24, Math.min(250, Math.floor(height)))
    }
    // The panel's height (without the margins) once the clipboard box has reached the height
    // of its content, and at the largest the boxes may take.
    readonly property real settledHeight: heightFor(Math.min(clipboardBox.measuredHeight,
                                                             clipboardMaxHeight))
    readonly property real fullHeight: heightFor(clipboardMaxHeight)
    readonly property alias usageCount: usage.count
    readonly property bool showCaptions: usage.count < 10

    signal promptSelected(var prompt)
    signal customPromptSubmitted(string text)
    signal close
    signal openPreferences
    signal paste

    // Set by the window for a moment before it closes, where the answer could only be copied.
    property bool copiedNoticeShown: false

    implicitWidth: card.width + 2 * margin

    // Ctrl+S saves the last custom prompt as "save prompt?" does (Ctrl+, for the preferences
    // is the window's).
    Shortcut {
        sequences: [StandardKey.Save]
        enabled: saveButton.visible
        onActivated: AppState.saveCustomPromptAsQuickAction()
    }
    // The window keeps the largest height; the card grows and shrinks inside it.
    implicitHeight: topMargin + Math.ceil(fullHeight) + margin

    function heightFor(inputHeight) {
        return chromeHeight + inputHeight + Math.max(80, inputHeight)
    }

    // A panel about to be shown has its final height at once; the clipboard box eases to a
    // new height only while it is seen.
    function settle() {
        clipboardBox.settle()
        // The window is cut to the card before the first frame: the card's height counts now.
        for (const column of [clipboardSection, resultSection, cardColumn, content])
            column.forceLayout()
    }

    // Back to the start of the prompt strip and to an answer box that follows the answer.
    function resetScrolling() {
        stripScroll.stop()
        promptStrip.contentX = 0
        answerFlick.contentY = 0
        answerFlick.following = true
    }

    // The trimmed custom prompt goes out, then the field is dismissed; a blank one is
    // ignored and the field stays as it is.
    function submitCustomPrompt() {
        const text = AppState.customPromptText.trim()
        if (text.length === 0)
            return
        root.customPromptSubmitted(text)
        dismissCustomPrompt()
    }

    function dismissCustomPrompt() {
        AppState.showCustomPromptInput = false
        AppState.customPromptText = ""
        customField.focus = false
    }

    function copyResult() {
        PanelClipboard.setText(AppState.resultText)
    }

    // How many prompts have been run, as stored; it only decides whether the captions show.
    QtObject {
        id: usage

        property int count: 0

        function refresh() {
            const stored = AppState.preferences.value("total_prompts_used")
            count = typeof stored === "number" ? stored : 0
        }

        Component.onCompleted: refresh()
    }

    Connections {
        target: AppState.preferences

        function onChanged() {
            usage.refresh()
        }
    }

    // The answer is appended fragment by fragment to the text box's document; only a
    // change that is not an append (clearing, an error message) replaces the whole text.
    QtObject {
        id: answerFeed

        property bool appending: false
    }

    Connections {
        target: AppState

        function onResultTextAppended(fragment) {
            answerText.append(fragment)
            answerFeed.appending = true
        }

        function onResultTextChanged() {
            if (answerFeed.appending) {
                answerFeed.appending = false
                return
            }
            answerFlick.following = true
            answerText.reset(AppState.resultText)
        }

        function onClipboardTextChanged() {
            clipboardText.reset(AppState.clipboardPreview)
        }
    }

    PanelShadow {
        anchors.fill: parent
        visible: root.shadowsVisible
        shape: Qt.rect(content.x + card.x, content.y + card.y, card.width, card.height)
        cornerRadius: 48
        blurRadius: 84
        offsetY: 4
        color: Qt.rgba(0, 0, 0, 0.1)
    }

    PanelShadow {
        anchors.fill: parent
        visible: root.shadowsVisible
        shape: Qt.rect(content.x + card.x, content.y + card.y, card.width, card.height)
        cornerRadius: 48
        blurRadius: 48
        offsetY: 32
        color: Qt.rgba(0, 0, 0, 0.4)
    }

    Column {
        id: content

        x: root.margin
        y: root.topMargin
        spacing: 12

        Item {
            id: card

            objectName: "panelCard"
            width: 544
            height: cardColumn.implicitHeight

            Rectangle {
                anchors.fill: parent
                radius: 48
                color: PanelPalette.panelBackground
            }

            // The card is moved by dragging its background.
            MouseArea {
                id: dragArea

                property point pressOrigin
                property bool manualMove: false

                anchors.fill: parent
                acceptedButtons: Qt.LeftButton
                onPressed: mouse => {
                    manualMove = !Window.window.startSystemMove()
                    pressOrigin = Qt.point(mouse.x, mouse.y)
                }
                onPositionChanged: mouse => {
                    if (manualMove && pressed) {
                        Window.window.x += mouse.x - pressOrigin.x
                        Window.window.y += mouse.y - pressOrigin.y
                    }
                }
            }

            Column {
                id: cardColumn

                width: parent.width
                spacing: 0

                Column {
                    id: clipboardSection

                    width: parent.width
                    leftPadding: 32
                    rightPadding: 32
                    topPadding: 28
                    bottomPadding: 16
                    spacing: root.showCaptions ? 6 : 0

                    Text {
                        id: inputCaption

                        visible: root.showCaptions
                        text: qsTr("input")
                        color: PanelPalette.captionText
                        font.family: PanelPalette.family
                        font.pixelSize: 12
                        font.weight: Font.Normal
                    }

                    ContentFittingScrollView {
                        id: clipboardBox

                        objectName: "clipboardBox"
                        width: parent.width - 64
                        maxHeight: root.clipboardMaxHeight

                        // A long copy shows its start only; the request still carries all of it.
                        PanelText {
                            id: clipboardText

                            objectName: "clipboardText"
                            width: parent.width
                            viewportY: clipboardBox.flickable.contentY
                            viewportHeight: clipboardBox.flickable.height
                            placeholder: qsTr("No text on clipboard")
                            Component.onCompleted: reset(AppState.clipboardPreview)
                        }

                        Item {
                            y: clipboardText.height
                            width: parent.width
                            height: clipboardMore.visible ? clipboardMore.height + 6 : 0

                            Text {
                                id: clipboardMore

                                objectName: "clipboardMore"
                                y: 6
                                width: parent.width
                                visible: AppState.clipboardLeftOut > 0
                                text: qsTr("\u2026 and %1 more character(s)", "", AppState.clipboardLeftOut)
                                      .arg(Number(AppState.clipboardLeftOut).toLocaleString(
                                          Qt.locale().name === "C" ? Qt.locale("en_US") : Qt.locale(), "f", 0))
                                wrapMode: Text.Wrap
                                color: PanelPalette.placeholderText
                                font.family: PanelPalette.family
                                font.pixelSize: 14
                            }
                        }
                    }
                }

                Item {
                    id: stripBand

                    width: parent.width
                    height: 50

                    Column {
                        width: parent.width

                        Rectangle {
                            width: parent.width
                            height: 25
                            color: PanelPalette.panelBackground
                        }
                        // One device pixel high, so that it covers exactly one row of pixels
                        // wherever the growing clipboard box puts it.
                        Rectangle {
                            id: hairline

                            objectName: "stripHairline"
                            width: parent.width
                            height: 1 / Screen.devicePixelRatio
                            color: PanelPalette.stripDivider
                        }
                        Rectangle {
                            width: parent.width
                            height: 25 - hairline.height
                            gradient: Gradient {
                                GradientStop {
                                    position: 0
                                    color: Qt.rgba(0, 0, 0, 0.1)
                                }
                                GradientStop {
                                    position: 1
                                    color: PanelPalette.panelBackground
                                }
                            }
                        }
                    }

                    Flickable {
                        id: promptStrip

                        objectName: "promptStrip"
                        anchors.fill: parent
                        visible: !AppState.showCustomPromptInput
                        clip: true
                        contentWidth: chipRow.width
                        contentHeight: height
                        flickableDirection: Flickable.HorizontalFlick
                        boundsBehavior: Flickable.StopAtBounds

                        property int promptCount: AppState.prompts.length

                        // New or removed prompts bring the custom chip, the strip's end, into view.
                        onPromptCountChanged: {
                            chipRow.forceLayout()
                            const target = Math.max(0, Math.min(customChip.x + customChip.width - width,
                                                                contentWidth - width))
                            stripScroll.stop()
                            stripScroll.to = target
                            stripScroll.start()
                        }

                        NumberAnimation {
                            id: stripScroll

                            target: promptStrip
                            property: "contentX"
                            duration: 250
                            easing.type: Easing.Bezier
                            easing.bezierCurve: [0, 0, 0.58, 1, 1, 1]
                        }

                        Row {
                            id: chipRow

                            anchors.verticalCenter: parent.verticalCenter
                            leftPadding: 28
                            rightPadding: 28
                            spacing: 8

                            Repeater {
                                model: AppState.prompts

                                Chip {
                                    required property var modelData

                                    objectName: "promptChip"
                                    badge: String(modelData.number)
                                    badgeFont.pixelSize: 13
                                    badgeColor: PanelPalette.primaryText
                                    title: modelData.title
                                    tip: qsTr("Press %1 \u2014 %2").arg(modelData.number).arg(modelData.title)
                                    onClicked: root.promptSelected(modelData)
                                }
                            }

                            Chip {
                                id: customChip

                                objectName: "customPromptTag"
                                badge: qsTr("ENTER")
                                badgeFont.pixelSize: 11
                                badgeColor: PanelPalette.captionText
                                title: qsTr("Custom prompt")
                                tip: qsTr("Press Enter \u2014 Custom prompt")
                                onClicked: AppState.showCustomPromptInput = true
                            }
                        }
                    }

                    // The ordinary wheel turns the strip sideways; clicks go through to the chips.
                    MouseArea {
                        anchors.fill: promptStrip
                        visible: promptStrip.visible
                        acceptedButtons: Qt.NoButton
                        onWheel: wheel => {
                            const dy = wheel.angleDelta.y
                            const dx = wheel.angleDelta.x
                            const step = Math.abs(dy) >= Math.abs(dx) ? dy : dx
                            const end = Math.max(0, promptStrip.contentWidth - promptStrip.width)
                            stripScroll.stop()
                            promptStrip.contentX = Math.max(0, Math.min(end,
                                                                        promptStrip.contentX - step))
                        }
                    }

                    Rectangle {
                        id: customPromptField

                        objectName: "customPromptField"
                        visible: AppState.showCustomPromptInput
                        x: 24
                        width: parent.width - 48
                        height: 36
                        anchors.verticalCenter: parent.verticalCenter
                        radius: 10
                        color: PanelPalette.fieldFill
                        border.color: PanelPalette.chipBorder
                        border.width: 1

                        onVisibleChanged: {
                            if (visible)
                                customField.forceActiveFocus()
                        }

                        Row {
                            anchors.fill: parent
                            leftPadding: 14
                            rightPadding: 14
                            spacing: 8

                            TextField {
                                id: customField

                                objectName: "customField"
                                // A writable text field reads the whole clipboard at every copy
                                // anywhere, to know whether it could paste: only the shown one is.
                                readOnly: !customPromptField.visible
                                width: parent.width - 28 - 8 - sendButton.width
                                anchors.verticalCenter: parent.verticalCenter
                                padding: 0
                                background: null
                                placeholderText: qsTr("Custom prompt")
                                Accessible.name: placeholderText
                                placeholderTextColor: PanelPalette.placeholderText
                                color: PanelPalette.primaryText
                                selectionColor: Qt.rgba(1, 1, 1, 0.3)
                                selectedTextColor: PanelPalette.primaryText
                                font.family: PanelPalette.family
                                font.pixelSize: 14
                                font.weight: Font.Medium
                                text: AppState.customPromptText
                                onTextEdited: AppState.customPromptText = text
                                onAccepted: root.submitCustomPrompt()
                                Keys.onEscapePressed: event => {
                                    root.dismissCustomPrompt()
                                    event.accepted = true
                                }
                            }

                            AbstractButton {
                                id: sendButton

                                objectName: "sendButton"
                                anchors.verticalCenter: parent.verticalCenter
                                width: 20
                                height: 20
                                hoverEnabled: true
                                focusPolicy: Qt.NoFocus
                                Accessible.name: qsTr("Send custom prompt")
                                ToolTip.visible: hovered
                                ToolTip.delay: 600
                                ToolTip.text: qsTr("Send custom prompt (Enter)")
                                onClicked: root.submitCustomPrompt()

                                contentItem: PanelIcon {
                                    symbol: "paperplane.fill"
                                    name: "document-send-symbolic"
                                    size: 13
                                    color: PanelPalette.primaryText
                                }
                                background: Item {}
                            }
                        }
                    }
                }

                Column {
                    id: resultSection

                    width: parent.width
                    leftPadding: 32
                    rightPadding: 32
                    topPadding: 12
                    bottomPadding: 28
                    spacing: root.showCaptions ? 6 : 0

                    readonly property bool hasCustomPrompt: AppState.lastCustomPromptText !== null
                                                            && AppState.lastCustomPromptText !== undefined
                    readonly property real headerHeight: saveButton.visible
                                                         ? saveButton.height + spacing
                                                         : outputCaption.visible
                                                           ? outputCaption.height + spacing : 0

                    AbstractButton {
                        id: saveButton

                        objectName: "saveButton"
                        visible: resultSection.hasCustomPrompt
                        hoverEnabled: true
                        focusPolicy: Qt.TabFocus
                        padding: 0
                        Accessible.name: contentItem.text
                        Accessible.description: qsTr("Saves this custom prompt as a quick action (%1)")
                                                .arg(KeyNames.shortcut("\u2318S"))
                        ToolTip.visible: hovered
                        ToolTip.delay: 600
                        ToolTip.text: qsTr("Save this custom prompt as a quick action")
                        onClicked: AppState.saveCustomPromptAsQuickAction()

                        contentItem: Text {
                            text: qsTr("save prompt?")
                            color: saveButton.palette.highlight
                            font.family: PanelPalette.family
                            font.pixelSize: 12
                            font.weight: Font.Medium
                        }
                        background: Item {}

                        FocusRing {
                            visible: saveButton.visualFocus
                        }
                    }

                    Text {
                        id: outputCaption

                        objectName: "outputCaption"
                        visible: !resultSection.hasCustomPrompt && root.showCaptions
                        text: qsTr("output")
                        color: PanelPalette.captionText
                        font.family: PanelPalette.family
                        font.pixelSize: 12
                        font.weight: Font.Normal
                    }

                    Item {
                        id: answerBox

                        objectName: "answerBox"
                        readonly property bool thinking: AppState.isLoading && answerText.empty

                        width: parent.width - 64
                        height: Math.max(80, root.inputHeight)

                        Flickable {
                            id: answerFlick

                            objectName: "answerFlick"
                            // Keeps the end of a growing answer in view until the user scrolls
                            // away from it; scrolling back to the end follows again.
                            property bool following: true
                            property bool movingToEnd: false
                            // The Flickable puts its view back within the new bounds before
                            // it tells about a new content height; only a move at a content
                            // height seen here is the user's.
                            property real seenContentHeight: 0

                            function showEnd() {
                                if (!following || contentHeight <= height)
                                    return
                                movingToEnd = true
                                contentY = contentHeight - height
                                movingToEnd = false
                            }

                            onContentHeightChanged: {
                                seenContentHeight = contentHeight
                                showEnd()
                            }
                            onHeightChanged: showEnd()
                            onContentYChanged: {
                                if (!movingToEnd && contentHeight === seenContentHeight)
                                    following = contentY >= contentHeight - height - 1
                            }

                            anchors.fill: parent
                            visible: !answerBox.thinking
                            clip: true
                            contentWidth: width
                            contentHeight: answerText.height
                            flickableDirection: Flickable.VerticalFlick
                            boundsBehavior: Flickable.StopAtBounds

                            ScrollBar.vertical: PanelScrollBar {}

                            PanelText {
                                id: answerText

                                objectName: "answerText"
                                width: answerFlick.width
                                viewportY: answerFlick.contentY
                                viewportHeight: answerFlick.height
                                placeholder: qsTr("Select a prompt above to get started")
                                Component.onCompleted: reset(AppState.resultText)
                            }
                        }

                        Row {
                            objectName: "thinking"
                            visible: answerBox.thinking
                            topPadding: 8
                            bottomPadding: 8
                            spacing: 8

                            Spinner {
                                anchors.verticalCenter: parent.verticalCenter
                                color: PanelPalette.primaryText
                                running: answerBox.thinking
                            }

                            Text {
                                anchors.verticalCenter: parent.verticalCenter
                                text: qsTr("Thinking\u2026")
                                color: PanelPalette.placeholderText
                                font.family: PanelPalette.family
                                font.pixelSize: 16
                                font.weight: Font.Normal
                            }
                        }
                    }

                    Item {
                        id: copyRow

                        width: parent.width - 64
                        height: copyButton.implicitHeight + 6

                        Row {
                            y: 6
                            spacing: 14

                            AbstractButton {
                                id: copyButton

                                objectName: "copyButton"
                                // Invisible but in place while there is nothing to copy, so
                                // nothing below moves when the first text arrives.
                                opacity: answerText.empty || root.copiedNoticeShown ? 0 : 1
                                enabled: !answerText.empty
                                hoverEnabled: true
                                focusPolicy: Qt.TabFocus
                                padding: 0
                                Accessible.name: qsTr("Copy")
                                Accessible.description: ToolTip.text
                                ToolTip.visible: hovered && enabled
                                ToolTip.delay: 600
                                ToolTip.text: qsTr("Copy result to clipboard")
                                onClicked: root.copyResult()

                                contentItem: Row {
                                    spacing: 4

                                    PanelIcon {
                                        anchors.verticalCenter: parent.verticalCenter
                                        symbol: "doc.on.doc"
                                        name: "edit-copy-symbolic"
                                        size: 10
                                        color: PanelPalette.captionText
                                    }

                                    Text {
                                        anchors.verticalCenter: parent.verticalCenter
                                        text: qsTr("Copy (%1)").arg(KeyNames.shortcut("\u2318C"))
                                        color: PanelPalette.captionText
                                        font.family: PanelPalette.family
                                        font.pixelSize: 11
                                        font.weight: Font.Medium
                                    }
                                }
                                background: Item {}

                                FocusRing {
                                    visible: copyButton.visualFocus
                                }
                            }

                            // Pastes into the window the text was copied from, as Ctrl+V does.
                            AbstractButton {
                                id: pasteButton

                                objectName: "pasteButton"
                                anchors.verticalCenter: parent.verticalCenter
                                opacity: copyButton.opacity
                                enabled: !answerText.empty
                                hoverEnabled: true
                                focusPolicy: Qt.TabFocus
                                padding: 0
                                Accessible.name: qsTr("Paste")
                                Accessible.description: ToolTip.text
                                ToolTip.visible: hovered && enabled
                                ToolTip.delay: 600
                                ToolTip.text: qsTr("Paste the result where the text was copied from")
                                onClicked: root.paste()

                                contentItem: Row {
                                    spacing: 5

                                    Text {
                                        anchors.verticalCenter: parent.verticalCenter
                                        text: KeyNames.shortcut("\u2318V")
                                        color: PanelPalette.captionText
                                        font.family: PanelPalette.family
                                        font.pixelSize: 11
                                        font.weight: Font.Bold
                                    }

                                    Text {
                                        anchors.verticalCenter: parent.verticalCenter
                                        text: qsTr("paste")
                                        color: PanelPalette.captionText
                                        font.family: PanelPalette.family
                                        font.pixelSize: 11
                                        font.weight: Font.Medium
                                    }
                                }
                                background: Item {}

                                FocusRing {
                                    visible: pasteButton.visualFocus
                                }
                            }
                        }

                        // Where pasting into another application is not possible.
                        Row {
                            objectName: "copiedNotice"
                            y: 6
                            spacing: 4
                            visible: root.copiedNoticeShown

                            PanelIcon {
                                anchors.verticalCenter: parent.verticalCenter
                                symbol: "doc.on.doc"
                                name: "edit-copy-symbolic"
                                size: 10
                                color: PanelPalette.primaryText
                            }

                            Text {
                                anchors.verticalCenter: parent.verticalCenter
                                text: qsTr("Copied \u2014 press %1").arg(KeyNames.shortcut("\u2318V"))
                                color: PanelPalette.primaryText
                                font.family: PanelPalette.family
                                font.pixelSize: 11
                                font.weight: Font.Medium
                                Accessible.role: Accessible.StaticText
                                Accessible.name: text
                            }
                        }
                    }
                }
            }

            Rectangle {
                anchors.fill: parent
                radius: 48
                color: "transparent"
                border.color: "black"
                border.width: 1
            }

            Rectangle {
                anchors.fill: parent
                anchors.margins: 1
                radius: 47
                color: "transparent"
                border.color: PanelPalette.panelBorder
                border.width: 1
            }
        }

        Row {
            id: controlButtons

            objectName: "controlButtons"
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 8

            RoundButton_ {
                objectName: "closeButton"
                symbol: "xmark"
                iconName: "window-close-symbolic"
                iconSize: 11
                tip: qsTr("Close (Esc)")
                Accessible.name: qsTr("Close")
                onClicked: root.close()
            }

            RoundButton_ {
                objectName: "preferencesButton"
                symbol: "ellipsis"
                iconName: "view-more-symbolic"
                iconSize: 13
                tip: qsTr("Preferences")
                Accessible.name: qsTr("Preferences")
                Accessible.description: qsTr("Opens the preferences (%1)").arg(
                                            KeyNames.shortcut("\u2318,"))
                onClicked: root.openPreferences()
            }
        }
    }

    // A numbered prompt chip, or the custom-prompt chip.
    component Chip: AbstractButton {
        id: chip

        property string badge
        property alias badgeFont: badgeLabel.font
        property alias badgeColor: badgeLabel.color
        property string title
        property string tip

        height: 32
        leftPadding: 12
        rightPadding: 12
        topPadding: 0
        bottomPadding: 0
        hoverEnabled: true
        focusPolicy: Qt.NoFocus
        Accessible.name: title
        Accessible.description: tip
        ToolTip.visible: hovered
        ToolTip.delay: 600
        ToolTip.text: tip

        contentItem: Row {
            spacing: 5

            Text {
                id: badgeLabel

                anchors.verticalCenter: parent.verticalCenter
                text: chip.badge
                font.family: PanelPalette.family
                font.weight: Font.Bold
            }

            Text {
                anchors.verticalCenter: parent.verticalCenter
                text: chip.title
                maximumLineCount: 1
                elide: Text.ElideRight
                color: PanelPalette.primaryText
                font.family: PanelPalette.family
                font.pixelSize: 13
                font.weight: Font.Medium
            }
        }

        background: ChipBackground {
            radius: 8
            startColor: PanelPalette.panelBackground
            endColor: PanelPalette.chipGradientEnd
            borderColor: PanelPalette.chipBorder
        }
    }

    // One of the two round buttons under the card.
    component RoundButton_: AbstractButton {
        id: roundButton

        property string symbol
        property string iconName
        property real iconSize
        property string tip

        width: 28
        height: 28
        hoverEnabled: true
        focusPolicy: Qt.TabFocus
        ToolTip.visible: hovered
        ToolTip.delay: 600
        ToolTip.text: tip

        contentItem: Item {
            PanelIcon {
                anchors.centerIn: parent
                symbol: roundButton.symbol
                name: roundButton.iconName
                size: roundButton.iconSize
                color: PanelPalette.controlButtonIcon
            }
        }
        background: Rectangle {
            radius: width / 2
            color: PanelPalette.controlButtonFill
        }

        FocusRing {
            visible: roundButton.visualFocus
            radius: width / 2
        }
    }
}
