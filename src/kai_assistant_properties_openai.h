#ifndef KAI_ASSISTANT_PROPERTIES_OPENAI_H
#define KAI_ASSISTANT_PROPERTIES_OPENAI_H

#include "kai_assistant_properties.h"

/// The settings of an OpenAI assistant: those of every assistant, and the name and description that it has on the
/// service.
///
/// Neither of the two is ever recorded as assigned: they are stored here and in session texts, and not sent. One of
/// another type than a string is taken as its text.
class KAIAssistantProperties_OPENAI : public KAIAssistantProperties {
public:
    KAIAssistantProperties_OPENAI();
};

#endif
