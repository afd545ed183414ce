import QtQuick
import QtQuick.Layouts
import Ravelo

// One walkthrough page: its content centred with 32 of padding, faded in and out over
// 300 ms as the page changes.
Item {
    id: page

    required property int step
    required property OnboardingFlow flow
    property alias spacing: column.spacing
    default property alias content: column.data
    readonly property bool current: flow.currentStep === step

    anchors.fill: parent
    opacity: current ? 1 : 0
    visible: opacity > 0
    enabled: current

    Behavior on opacity {
        NumberAnimation {
            duration: 300
            easing.type: Easing.InOutQuad
        }
    }

    ColumnLayout {
        id: column
        anchors.centerIn: parent
        width: parent.width - 64
    }
}
