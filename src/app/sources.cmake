foreach(name Main AppState PromptRun RunCommand Application AppDelegate SingleInstance
             TriggerCommand AppLogging RaveloApp)
    foreach(ext cpp h)
        if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${name}.${ext})
            list(APPEND RAVELO_SOURCES app/${name}.${ext})
        endif()
    endforeach()
endforeach()
# The application's bolt: tray icon, About dialog and desktop entry.
list(APPEND RAVELO_RESOURCES app/icons/ravelo.svg)
