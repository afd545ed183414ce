# Starting Ravelo at login through the desktop's autostart folder.
list(APPEND RAVELO_SOURCES settings/AutostartEntry.cpp settings/AutostartEntry.h)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/AutostartToggle.qml
                            PROPERTIES QT_RESOURCE_ALIAS AutostartToggle.qml)
list(APPEND RAVELO_QML settings/AutostartToggle.qml)
