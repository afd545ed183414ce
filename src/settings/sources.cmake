# The preferences window: its tabs, the model catalogue, the prompt list editor and the
# hotkey recorder.
list(APPEND RAVELO_SOURCES
    settings/HotkeyConflict.cpp settings/HotkeyConflict.h
    settings/HotkeyRecorder.cpp settings/HotkeyRecorder.h
    settings/HotkeyRecording.cpp settings/HotkeyRecording.h
    settings/HotkeySettings.cpp settings/HotkeySettings.h
    settings/ModelCatalogue.cpp settings/ModelCatalogue.h
    settings/PromptListEditor.cpp settings/PromptListEditor.h
    settings/ServerModels.cpp settings/ServerModels.h
    settings/SettingsLogging.h
    settings/SettingsWindow.cpp settings/SettingsWindow.h
)
# At the module root: a singleton beside the files that use it would be shadowed by
# their own directory, which sees it as a plain type.
set_source_files_properties(settings/SettingsStyle.qml PROPERTIES QT_QML_SINGLETON_TYPE TRUE
                            QT_RESOURCE_ALIAS SettingsStyle.qml)
list(APPEND RAVELO_QML
    settings/FocusRing.qml
    settings/FormSection.qml
    settings/GeneralTab.qml
    settings/LinkLabel.qml
    settings/HotkeyTab.qml
    settings/PriceLabel.qml
    settings/ProminentButton.qml
    settings/PromptEditorInline.qml
    settings/PromptRow.qml
    settings/PromptsTab.qml
    settings/SettingsCaption.qml
    settings/SettingsDivider.qml
    settings/SettingsStyle.qml
    settings/ServerForm.qml
    settings/SettingsView.qml
    settings/WindowPane.qml
)
file(GLOB _settings_icons CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}
     ${CMAKE_CURRENT_LIST_DIR}/icons/*.svg)
list(APPEND RAVELO_RESOURCES ${_settings_icons})
# Starting Ravelo at login through the desktop's autostart folder.
list(APPEND RAVELO_SOURCES settings/AutostartEntry.cpp settings/AutostartEntry.h)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/AutostartToggle.qml
                            PROPERTIES QT_RESOURCE_ALIAS AutostartToggle.qml)
list(APPEND RAVELO_QML settings/AutostartToggle.qml)
