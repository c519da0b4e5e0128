#ifndef KAI_ASSISTANT_PROPERTIES_OPENAI_H
#define KAI_ASSISTANT_PROPERTIES_OPENAI_H

#include "kai_assistant_properties.h"

/// The settings of an OpenAI assistant: those of every assistant, and its name and description on the service.
///
/// Neither of the two is ever recorded as assigned: they are stored here and in session texts, but not sent. A value
/// that is no string is stored as its text.
class KAIAssistantProperties_OPENAI : public KAIAssistantProperties {
public:
    KAIAssistantProperties_OPENAI();
};

#endif
