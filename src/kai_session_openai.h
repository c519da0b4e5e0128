#ifndef KAI_SESSION_OPENAI_H
#define KAI_SESSION_OPENAI_H

#include <string>
#include <string_view>
#include <utility>

#include "kai.h"
#include "kai_assistant_properties_openai.h"

/// A thread on the service, and the assistant on the service to which it belongs.
class KAISession_OPENAI : public IKAISession {
public:
    /// A session that has no thread yet.
    /// @param properties   the assistant's own, borrowed for the session's life
    /// @param assistantID  the id of its assistant on the service
    KAISession_OPENAI(KAIAssistantProperties_OPENAI& properties, std::string assistantID);

    std::string serializeSession() override;

    /// Restores the ids and the assistant's settings from the text of serializeSession.
    /// @param defaultHost  used if the host is empty
    /// @param assistantID  receives the assistant's id too
    /// @return false if the text is not JSON, or an id is missing or cannot be a segment of a path; nothing has changed
    ///         then
    bool loadSession(std::string serializedSession, std::string_view defaultHost, std::string& assistantID);

    void setThreadID(std::string threadID) noexcept { m_threadID = std::move(threadID); }

    [[nodiscard]] const std::string& obtainAssistantID() const noexcept { return m_assistantID; }
    [[nodiscard]] const std::string& obtainThreadID() const noexcept { return m_threadID; }

private:
    std::string m_assistantID;
    std::string m_threadID;
    KAIAssistantProperties_OPENAI& m_properties;
};

#endif
