#include "kai_session_deepseek.h"

KAISession_DEEPSEEK::KAISession_DEEPSEEK(KAIAssistantProperties& properties)
    : KAISessionChat(properties, {"src/kai_session_deepseek.cpp", 45}) {}
