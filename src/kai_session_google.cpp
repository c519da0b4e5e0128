#include "kai_session_google.h"

#include "kai_assistant_google.h"

// The check of a message's role stands once, in the history that all chat sessions share, yet its report names the
// provider's own source. So the place is passed as data, and reports stay the same when lines move.
KAISession_GOOGLE::KAISession_GOOGLE(KAIAssistantProperties& properties)
    : kai::ChatSession(properties, kai::obtainGoogleProtocol(), {"src/kai_session_google.cpp", 45}) {}
