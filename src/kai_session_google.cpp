#include "kai_session_google.h"

KAISession_GOOGLE::KAISession_GOOGLE(KAIAssistantProperties& properties)
    : KAISessionChat(properties, {"src/kai_session_google.cpp", 45}) {}
