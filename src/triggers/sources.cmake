# The trigger manager with its double-copy rule; the platform backends live in platform/.
list(APPEND RAVELO_SOURCES
    triggers/DoubleCopyDetector.cpp triggers/DoubleCopyDetector.h
    triggers/HotkeyManager.cpp triggers/HotkeyManager.h
)
