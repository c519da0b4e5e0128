#ifndef KAI_ASSISTANT_OPENAI_H
#define KAI_ASSISTANT_OPENAI_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kai.h"
#include "kai_assistant_properties_openai.h"
#include "kai_run_poll.h"
#include "kai_service_openai.h"
#include "kai_session_openai.h"

/// An assistant of the OpenAI Assistants protocol. Everything is kept on the service: an assistant, created when the
/// properties are first set and deleted with the last session; a thread for each session; a run for each message.
///
/// Destroying the object sends nothing: sessions that were not ended with destroySession stay on the service.
class KAIAssistant_OPENAI : public IKAIAssistant {
public:
    /// @param clock  used to wait for runs; borrowed for the assistant's life
    KAIAssistant_OPENAI(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                        const std::string& apiKey, kai::PollClock& clock = kai::obtainSystemPollClock());
    KAIAssistant_OPENAI(const KAIAssistant_OPENAI&) = delete;
    KAIAssistant_OPENAI& operator=(const KAIAssistant_OPENAI&) = delete;

    std::pair<std::vector<std::string>, std::string> obtainAvailableModels() override;
    std::string setAssistantProperties(std::function<void(IKAIProperties*)> fill) override;
    /// The assistant's own object, which reflects every later change.
    IKAIProperties* obtainAssistantProperties() override;
    std::pair<IKAISession*, std::string> createSession() override;
    std::pair<IKAISession*, std::string> restoreSession(std::string serializedSession) override;
    std::string destroySession(IKAISession* session) override;
    std::pair<IKAIMessage*, std::string> addMessage(IKAISession* session, std::string text) override;

    /// The id of the assistant on the service; empty while there is none.
    [[nodiscard]] const std::string& obtainAssistantID() const noexcept { return m_assistantID; }

private:
    std::pair<std::string, std::string> createAssistant(KAIAssistantProperties_OPENAI* candidate);
    std::string modifyAssistant(KAIAssistantProperties_OPENAI* candidate);
    std::string destroyAssistant(std::string id);

    std::string postMessage(const std::string& threadID, const std::string& text);
    std::pair<std::string, std::string> createRun(const std::string& threadID);
    kai::RunState lookAtRun(const std::string& threadID, const std::string& runID);
    std::pair<IKAIMessage*, std::string> fetchAnswer(const std::string& threadID, const std::string& runID);
    [[nodiscard]] std::string obtainHost() const;

    std::string m_assistantID;
    std::vector<KAISession_OPENAI*> m_sessions;
    // Destroyed in reverse order: the pool, the REST session, the properties.
    std::unique_ptr<KAIAssistantProperties_OPENAI> m_properties;
    std::unique_ptr<CMRestSession> m_restSession;
    std::unique_ptr<ICSHTTPPoolCenter> m_poolCenter;
    kai::OpenAIService m_service;
    kai::PollClock& m_clock;
};

namespace kai {

/// The identifiers in a model list, newest first; nothing if the list has another form.
std::optional<std::vector<std::string>> readModelsNewestFirst(const COJsonValue& data);

}  // namespace kai

#endif
