import QtQuick
import Ravelo

// One walkthrough page: its content centred with 32 of padding, faded in and out over
// 300 ms as the page changes.
Item {
    id: page

    required property int step
    required property OnboardingFlow flow
    default property alias content: holder.data
    readonly property bool current: flow.currentStep === step

    anchors.fill: parent
    opacity: current ? 1 : 0
    enabled: current
    // Gone once faded out, also for screen readers.
    visible: current || opacity > 0

    Behavior on opacity {
        NumberAnimation {
            duration: 300
            easing.type: Easing.InOutQuad
        }
    }

    Item {
        id: holder
        anchors.centerIn: parent
        width: parent.width - 64
        height: childrenRect.height
    }
}
