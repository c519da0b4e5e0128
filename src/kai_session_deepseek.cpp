#include "kai_session_deepseek.h"

#include "kai_assistant_deepseek.h"

// The check of a message's role stands once, in the history that all chat sessions share, yet its report names the
// provider's own source. So the place is passed as data, and reports stay the same when lines move.
KAISession_DEEPSEEK::KAISession_DEEPSEEK(KAIAssistantProperties& properties)
    : kai::ChatSession(properties, kai::obtainDeepSeekProtocol(), {"src/kai_session_deepseek.cpp", 45}) {}
