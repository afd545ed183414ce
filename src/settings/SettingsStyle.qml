pragma Singleton
import QtQuick

// Text sizes and the softer text colours shared by the preferences and walkthrough
// windows. Sizes are logical pixels.
QtObject {
    readonly property int largeTitle: 26
    readonly property int title2: 19
    readonly property int title3: 16
    readonly property int headline: 13
    readonly property int body: 13
    readonly property int callout: 12
    readonly property int caption: 11
    readonly property int caption2: 10

    function secondary(color) {
        return Qt.rgba(color.r, color.g, color.b, 0.65)
    }
    function tertiary(color) {
        return Qt.rgba(color.r, color.g, color.b, 0.45)
    }
    // A faint wash of the text colour, for grouped boxes on the window background.
    function wash(color) {
        return Qt.rgba(color.r, color.g, color.b, 0.04)
    }
    function divider(color) {
        return Qt.rgba(color.r, color.g, color.b, 0.15)
    }
}
