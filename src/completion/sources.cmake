# The chat-completion client: request, event-stream reader and errors. Uses Qt only.
list(APPEND RAVELO_SOURCES
    completion/CompletionLogging.h
    completion/CompletionStream.cpp completion/CompletionStream.h
    completion/HttpResponseReader.cpp completion/HttpResponseReader.h
    completion/OpenAIClient.cpp completion/OpenAIClient.h
    completion/OpenAIError.cpp completion/OpenAIError.h
    completion/SseEvent.cpp completion/SseEvent.h
    completion/SseLineSplitter.h
)
