#include "kai_session_ollama.h"

#include "kai_assistant_ollama.h"

// The check of a message's role is in the history that all chat sessions share, but its report names the provider's own
// source file. So file and line are passed as data, and reports stay the same when lines move.
KAISession_OLLAMA::KAISession_OLLAMA(KAIAssistantProperties& properties)
    : kai::ChatSession(properties, kai::obtainOllamaProtocol(), {"src/kai_session_ollama.cpp", 45}) {}
