#include "kai_session_google.h"

#include "kai_assistant_google.h"

// The check of a message's role is in the history that all chat sessions share, but its report names the provider's own
// source file. So file and line are passed as data, and reports stay the same when lines move.
KAISession_GOOGLE::KAISession_GOOGLE(KAIAssistantProperties& properties)
    : kai::ChatSession(properties, kai::obtainGoogleProtocol(), {"src/kai_session_google.cpp", 45}) {}
