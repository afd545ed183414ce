pragma Singleton

import QtQuick

// The quick panel's own dark palette and its font family: the desktop's default sans-serif.
QtObject {
    readonly property color panelBackground: Qt.rgba(0.243, 0.247, 0.251, 1)
    readonly property color panelBorder: Qt.rgba(0.424, 0.427, 0.431, 1)
    readonly property color stripDivider: Qt.rgba(0.329, 0.329, 0.329, 1)
    readonly property color chipBorder: Qt.rgba(0.35, 0.35, 0.35, 1)
    readonly property color chipGradientEnd: Qt.rgba(0.363, 0.363, 0.363, 1)
    readonly property color primaryText: Qt.rgba(0.985, 0.985, 0.985, 1)
    readonly property color placeholderText: Qt.rgba(0.985, 0.985, 0.985, 0.4)
    readonly property color captionText: Qt.rgba(0.985, 0.985, 0.985, 0.25)
    readonly property color controlButtonFill: Qt.rgba(0.3, 0.3, 0.3, 1)
    readonly property color controlButtonIcon: Qt.rgba(0.65, 0.65, 0.65, 1)
    readonly property color fieldFill: Qt.rgba(0.22, 0.22, 0.23, 1)
    readonly property color selection: Qt.rgba(1, 1, 1, 0.3)
    readonly property string family: Qt.application.font.family
}
