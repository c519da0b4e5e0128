#ifndef KAI_SESSION_DEEPSEEK_H
#define KAI_SESSION_DEEPSEEK_H

#include "kai_session_chat.h"

/// A conversation of a DeepSeek assistant.
class KAISession_DEEPSEEK : public kai::ChatSession {
public:
    explicit KAISession_DEEPSEEK(KAIAssistantProperties& properties);
};

#endif
