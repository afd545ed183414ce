list(APPEND RAVELO_SOURCES
    model/Prompt.cpp model/Prompt.h
    model/PreferenceStore.cpp model/PreferenceStore.h
    model/PromptHotkeys.cpp model/PromptHotkeys.h
    model/PromptStore.cpp model/PromptStore.h
    model/Translations.cpp model/Translations.h
)
list(APPEND RAVELO_LIBS Qt6Keychain::Qt6Keychain)
