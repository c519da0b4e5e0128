#include "host_at_work.h"

#include <stdexcept>
#include <utility>

#include "cf/stream.h"

HostAtWork::HostAtWork(KAIAssistantType type, const std::string& host)
    : m_type(type), m_assistant(KAICreateAssistant(type, cfCreateHTTPPoolCenter(), "secret", host)) {}

HostAtWork::~HostAtWork() = default;

std::string HostAtWork::setProperties(const char* instructions) {
    std::string error = m_assistant->setAssistantProperties([instructions](IKAIProperties* properties) {
        properties->setProperty("model", "m");
        properties->setProperty("user_instructions", instructions);
        properties->setProperty(
            "db_structure",
            R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"id","type":"int"}],"pkeys":["id"]}]}]}])");
    });
    m_hasProperties = m_hasProperties || error.empty();
    return error;
}

void HostAtWork::prepare(HostStep step) {
    const auto require = [](const std::string& error) {
        if (!error.empty()) {
            throw std::runtime_error("before the step: " + error);
        }
    };
    if (step == HostStep::ListModels || step == HostStep::SetProperties) {
        return;
    }
    if (!m_hasProperties) {
        require(setProperties("Answer."));
    }
    if (step != HostStep::ChangeProperties && step != HostStep::OpenSession && !m_session) {
        require(perform(HostStep::OpenSession).error);
    }
}

StepResult HostAtWork::perform(HostStep step, const std::string& question) {
    switch (step) {
        case HostStep::ListModels:
            return {m_assistant->obtainAvailableModels().second, {}};
        case HostStep::SetProperties:
            return {setProperties("Answer."), {}};
        case HostStep::ChangeProperties:
            return {setProperties("Answer briefly."), {}};
        case HostStep::OpenSession: {
            auto [session, error] = m_assistant->createSession();
            if (session != nullptr) {
                m_session.reset(session);
            }
            return {error, {}};
        }
        case HostStep::Say:
            return say(question);
        case HostStep::SayStreamed: {
            std::string pieces;
            const CMTextStream stream([&pieces](std::string_view piece) { pieces += piece; });
            StepResult result = say(question);
            if (result.error.empty() && pieces != result.answer) {
                return {"the pieces joined are \"" + pieces + "\", the answer is \"" + result.answer + "\"", {}};
            }
            return result;
        }
        case HostStep::CloseSession: {
            std::string error = m_assistant->destroySession(m_session.get());
            if (error.empty()) {
                m_session.reset();
                m_hasProperties = false;
            }
            return {error, {}};
        }
    }
    return {};
}

StepResult HostAtWork::say(const std::string& question) {
    // Room in advance: an allocation that fails behind the turn is not the library's.
    constexpr std::size_t kLongestAnswer = 1024;
    std::string answer;
    answer.reserve(kLongestAnswer);
    auto [rawMessage, error] = m_assistant->addMessage(m_session.get(), question);
    const KAIPtr<IKAIMessage> message(rawMessage);
    if (!message) {
        return {error.empty() ? "neither a message nor an error" : std::move(error), {}};
    }
    for (IKAIMessageSection* section : message->obtainSections()) {
        answer += section->obtainText();
    }
    return {std::move(error), std::move(answer)};
}

std::string HostAtWork::describe() {
    std::string text = m_session ? m_session->serializeSession() : "no session";
    IKAIProperties* properties = m_assistant->obtainAssistantProperties();
    const KAIPtr<IKAIProperties> copy(m_type == KAIAssistantType::OPENAI ? nullptr : properties);
    for (const char* key : {"api_host", "model", "user_instructions", "combined_instructions"}) {
        text += "\n" + properties->obtainProperty(key).stringValue();
    }
    return text;
}

void HostAtWork::restore(const std::string& sessionText) {
    auto [session, error] = m_assistant->restoreSession(sessionText);
    if (session == nullptr) {
        throw std::runtime_error("restoring: " + error);
    }
    m_session.reset(session);
    m_hasProperties = true;
}

void HostAtWork::forgetSession() {
    if (m_type != KAIAssistantType::OPENAI) {
        m_session.reset();
    }
}
