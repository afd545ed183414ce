import QtQuick
import Ravelo
import QtQuick.Controls.Fusion
import QtQuick.Templates as T

// The root of the preferences and walkthrough windows. It takes every colour from the
// system palette, so the controls inside follow the system's light or dark appearance,
// also when it changes while the window is open.
Pane {
    id: pane

    // Return or Enter on a focused push button presses it, as Space does.
    function pressFocusedButton(event) {
        const item = Window.activeFocusItem
        if (item instanceof T.AbstractButton && !item.checkable && item.enabled)
            item.clicked()
        else
            event.accepted = false
    }

    // Set from script: a declared binding to this newer palette role is refused as unavailable
    // "due to component versioning" when the panel's Basic controls were loaded first.
    Component.onCompleted: palette.placeholderText = Qt.binding(() => active.placeholderText)

    padding: 0
    Keys.onReturnPressed: event => pressFocusedButton(event)
    Keys.onEnterPressed: event => pressFocusedButton(event)
    font.pixelSize: SettingsStyle.body

    palette.window: active.window
    palette.windowText: active.windowText
    palette.base: active.base
    palette.alternateBase: active.alternateBase
    palette.text: active.text
    palette.button: active.button
    palette.buttonText: active.buttonText
    palette.highlight: active.highlight
    palette.highlightedText: active.highlightedText
    palette.light: active.light
    palette.midlight: active.midlight
    palette.mid: active.mid
    palette.dark: active.dark
    palette.shadow: active.shadow
    palette.link: active.window.hslLightness < 0.5 ? "#6cb4ff" : "#0b57d0"
    palette.disabled.text: disabled.text
    palette.disabled.windowText: disabled.windowText
    palette.disabled.buttonText: disabled.buttonText
    palette.disabled.button: disabled.button

    SystemPalette {
        id: active
        colorGroup: SystemPalette.Active
    }
    SystemPalette {
        id: disabled
        colorGroup: SystemPalette.Disabled
    }
}
