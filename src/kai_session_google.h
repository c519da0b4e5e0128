#ifndef KAI_SESSION_GOOGLE_H
#define KAI_SESSION_GOOGLE_H

#include "kai_session_chat.h"

/// A conversation of a Google assistant.
class KAISession_GOOGLE : public kai::ChatSession {
public:
    explicit KAISession_GOOGLE(KAIAssistantProperties& properties);
};

#endif
