#ifndef KAI_SESSION_OPENAI_H
#define KAI_SESSION_OPENAI_H

#include <string>

#include "kai.h"
#include "kai_assistant_properties_openai.h"

/// A thread on the service, and the assistant there that it was made for.
class KAISession_OPENAI : public IKAISession {
public:
    /// @param properties  the assistant's own, borrowed for the session's life
    explicit KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties);
    KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties, std::string assistantID, std::string threadID);

    std::string serializeSession() override;

    /// Takes the ids, and the assistant's settings, from the text of serializeSession.
    /// @return false, with nothing changed, when the text is not JSON or lacks an id
    bool loadSession(const std::string& serializedSession);

    [[nodiscard]] const std::string& obtainAssistantID() const noexcept { return m_assistantID; }
    [[nodiscard]] const std::string& obtainThreadID() const noexcept { return m_threadID; }

private:
    std::string m_assistantID;
    std::string m_threadID;
    KAIAssistantProperties_OPENAI& m_properties;
};

#endif
