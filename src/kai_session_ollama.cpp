#include "kai_session_ollama.h"

KAISession_OLLAMA::KAISession_OLLAMA(KAIAssistantProperties& properties)
    : KAISessionChat(properties, {"src/kai_session_ollama.cpp", 45}) {}
