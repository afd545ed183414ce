foreach(name Main AppState PromptRun RunCommand Application AppDelegate SingleInstance
             TriggerCommand AppLogging)
    foreach(ext cpp h)
        if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${name}.${ext})
            list(APPEND RAVELO_SOURCES app/${name}.${ext})
        endif()
    endforeach()
endforeach()
