#ifndef TESTS_HOST_AT_WORK_H
#define TESTS_HOST_AT_WORK_H

#include <memory>
#include <string>

#include "kai.h"
#include "request_rows.h"

/// What came of a step of the host.
struct StepResult {
    std::string error;   ///< the operation's error text
    std::string answer;  ///< of a turn: the message's text
};

/// A host with one assistant and at most one session, which can be brought to any of its steps.
class HostAtWork {
public:
    /// @param host  of the service, as the factory takes it
    HostAtWork(KAIAssistantType type, const std::string& host);
    ~HostAtWork();
    HostAtWork(const HostAtWork&) = delete;
    HostAtWork& operator=(const HostAtWork&) = delete;

    /// Does all that comes before a step, against a service that answers well. Throws std::runtime_error where that
    /// fails.
    void prepare(HostStep step);
    /// Does the step.
    StepResult perform(HostStep step, const std::string& question = "How are you?");
    /// What the host can see of its assistant and session: session text, properties, whether there is a session.
    [[nodiscard]] std::string describe();
    /// The session's text, and a session made of one.
    [[nodiscard]] std::string serialize() { return m_session->serializeSession(); }
    void restore(const std::string& sessionText);
    /// Begins anew: frees the session and creates another one where the service keeps none.
    void forgetSession();

private:
    std::string setProperties(const char* instructions);
    StepResult say(const std::string& question);

    KAIAssistantType m_type;
    KAIPtr<IKAIAssistant> m_assistant;
    KAIPtr<IKAISession> m_session;
    bool m_hasProperties = false;
};

#endif
