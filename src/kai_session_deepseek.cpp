#include "kai_session_deepseek.h"

#include "kai_assistant_deepseek.h"

// The check of a message's role is in the history that all chat sessions share, but its report names the provider's own
// source file. So file and line are passed as data, and reports stay the same when lines move.
KAISession_DEEPSEEK::KAISession_DEEPSEEK(KAIAssistantProperties& properties)
    : kai::ChatSession(properties, kai::obtainDeepSeekProtocol(), {"src/kai_session_deepseek.cpp", 45}) {}
