foreach(name AppState PromptRun Application AppDelegate SingleInstance AppLogging RaveloApp)
    foreach(ext cpp h)
        if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${name}.${ext})
            list(APPEND RAVELO_SOURCES app/${name}.${ext})
        endif()
    endforeach()
endforeach()
# The application's bolt: tray icon, About dialog and desktop entry.
list(APPEND RAVELO_RESOURCES app/icons/ravelo.svg)
# The command line: its dispatch, `run`, `trigger` and `quit`, and the instance client and
# prompt run it shares with the application.
foreach(name Main RunCommand TriggerCommand PromptRun SingleInstance AppLogging)
    foreach(ext cpp h)
        if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${name}.${ext})
            list(APPEND RAVELO_CLI_SOURCES app/${name}.${ext})
        endif()
    endforeach()
endforeach()
