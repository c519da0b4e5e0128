#ifndef KAI_SESSION_OPENAI_H
#define KAI_SESSION_OPENAI_H

#include <string>
#include <string_view>
#include <utility>

#include "kai.h"
#include "kai_assistant_properties_openai.h"

/// A thread on the service, and the assistant there that it was made for.
class KAISession_OPENAI : public IKAISession {
public:
    /// A session without a thread as yet.
    /// @param properties   the assistant's own, borrowed for the session's life
    /// @param assistantID  the assistant on the service that it is made for
    KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties, std::string assistantID);

    std::string serializeSession() override;

    /// Takes the ids, and the assistant's settings, from the text of serializeSession. All or nothing.
    /// @param defaultHost  stands in for a blank host
    /// @param assistantID  receives the assistant's id too
    /// @return false, with nothing changed, when the text is not JSON, or an id is missing or cannot stand in a path
    bool loadSession(const std::string& serializedSession, std::string_view defaultHost, std::string& assistantID);

    void setThreadID(std::string threadID) noexcept { m_threadID = std::move(threadID); }

    [[nodiscard]] const std::string& obtainAssistantID() const noexcept { return m_assistantID; }
    [[nodiscard]] const std::string& obtainThreadID() const noexcept { return m_threadID; }

private:
    std::string m_assistantID;
    std::string m_threadID;
    KAIAssistantProperties_OPENAI& m_properties;
};

#endif
