#ifndef KAI_SESSION_OLLAMA_H
#define KAI_SESSION_OLLAMA_H

#include "kai_session_chat.h"

/// A conversation of an Ollama assistant.
class KAISession_OLLAMA : public kai::ChatSession {
public:
    explicit KAISession_OLLAMA(KAIAssistantProperties& properties);
};

#endif
