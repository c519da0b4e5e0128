#include "kai_assistant_openai.h"

#include <algorithm>
#include <cstdint>

#include "cf/assertion.h"
#include "cf/stream.h"
#include "cf/utilities.h"
#include "kai_host_callback.h"
#include "kai_message.h"

namespace {

/// Passes an answer to the stream as one piece: the service's runs are not streamed.
void tellWhole(const CMTextStream& stream, IKAIMessage& message) {
    std::string text;
    for (IKAIMessageSection* section : message.obtainSections()) {
        text += section->obtainText();
    }
    if (!text.empty()) {
        stream.tell(text);
    }
}

constexpr const char* kDefaultHost = "api.openai.com";

// Creating and modifying send the same body: what the host assigned, and the instructions.
COJson buildAssistantBody(KAIAssistantProperties_OPENAI& candidate) {
    COJson body;
    const kai::AssistantSettings& settings = candidate.obtainSettings();
    const auto addIfAssigned = [&](const char* key, const std::string& value) {
        if (candidate.isAssigned(key)) {
            body.addKeyValue(key).setString(value);
        }
    };
    addIfAssigned("model", settings.model);
    addIfAssigned("name", settings.name);
    addIfAssigned("description", settings.description);
    if (candidate.isAssigned("temperature")) {
        body.addKeyValue("temperature").setDouble(settings.temperature);
    }
    const std::string instructions = candidate.obtainCombinedInstructions();
    if (!instructions.empty()) {
        body.addKeyValue("instructions").setString(instructions);
    }
    return body;
}

void prepareCandidate(kai::AssistantSettings& settings) {
    settings.temperature = std::clamp(settings.temperature, 0.0, 2.0);
    if (settings.apiHost.empty()) {
        settings.apiHost = kDefaultHost;
    }
}

void appendTextSections(KAIMessage& message, const COJsonValue& content) {
    for (const COJsonValue item : content.obtainItems()) {
        const COJsonValue type = item.obtainMember("type");
        if (!type.isString()) {
            continue;
        }
        CF_ASSERT(type.obtainString() == "text");
        const COJsonValue value = item.obtainMember("text").obtainMember("value");
        if (type.obtainString() == "text" && value.isString()) {
            message.addTextSection(std::string(value.obtainString()));
        }
    }
}

}  // namespace

KAIAssistant_OPENAI::KAIAssistant_OPENAI(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                                         const std::string& apiKey, kai::PollClock& clock)
    : m_properties(std::make_unique<KAIAssistantProperties_OPENAI>()),
      m_restSession(std::make_unique<CMRestSession>()),
      m_poolCenter(std::move(poolCenter)),
      m_service(*m_restSession),
      m_clock(clock) {
    m_restSession->setPoolCenter(m_poolCenter.get());
    m_restSession->setAuthorizationHeaderValue("Bearer " + apiKey);
    m_restSession->addHeaderParam("OpenAI-Beta", "assistants=v2");
    m_properties->changeSettings([&](kai::AssistantSettings& settings) {
        settings.apiHost = cfTrimAsString(host);
        prepareCandidate(settings);
    });
}

std::optional<std::vector<std::string>> kai::readModelsNewestFirst(const COJsonValue& data) {
    if (!data.isArray()) {
        return std::nullopt;
    }
    std::vector<std::pair<std::int32_t, std::string>> found;
    for (const COJsonValue item : data.obtainItems()) {
        const COJsonValue id = item.obtainMember("id");
        const COJsonValue created = item.obtainMember("created");
        if (id.isString() && item.obtainMember("object").obtainString() == "model" && created.isNumber()) {
            // Times are compared as 32-bit numbers: hosts have always seen the models in this order.
            found.emplace_back(static_cast<std::int32_t>(created.obtainInteger()), std::string(id.obtainString()));
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<std::string> models;
    models.reserve(found.size());
    for (auto& [created, id] : found) {
        models.push_back(std::move(id));
    }
    return models;
}

std::pair<std::vector<std::string>, std::string> KAIAssistant_OPENAI::obtainAvailableModels() {
    kai::ServiceAnswer answer = m_service.get(obtainHost(), {"models"}, {}, {});
    if (!answer.errorText.empty()) {
        return {std::vector<std::string>(), std::move(answer.errorText)};
    }
    if (std::optional<std::string> message = kai::findErrorMessage(answer.response.get())) {
        return {{}, *std::move(message)};
    }
    std::optional<std::vector<std::string>> models = kai::readModelsNewestFirst(answer.obtainMember("data"));
    if (!models) {
        return {{}, localizeString("Unsupported data format") + ": g/v1/models"};
    }
    return {*std::move(models), {}};
}

std::string KAIAssistant_OPENAI::setAssistantProperties(std::function<void(IKAIProperties*)> fill) {
    if (!fill) {
        return "Properties not set";
    }
    KAIAssistantProperties_OPENAI candidate;
    candidate.changeSettings([&](kai::AssistantSettings& settings) { settings.apiHost = obtainHost(); });
    fill(&candidate);
    candidate.changeSettings(prepareCandidate);
    if (candidate.isAssigned("api_host")) {
        // Set now: the request below already goes to the new host, and the change stays if the request fails.
        m_properties->changeSettings(
            [&](kai::AssistantSettings& settings) { settings.apiHost = candidate.obtainSettings().apiHost; });
    }
    if (!m_assistantID.empty()) {
        std::string errorText = modifyAssistant(&candidate);
        if (errorText.empty()) {
            KAIAssistantProperties_OPENAI merged(*m_properties);
            candidate.copyAssignedProperties(merged);
            m_properties->adoptSettings(std::move(merged));
        }
        return errorText;
    }
    auto [id, errorText] = createAssistant(&candidate);
    if (errorText.empty()) {
        m_assistantID = std::move(id);
        m_properties->adoptSettings(std::move(candidate));
    }
    return errorText;
}

IKAIProperties* KAIAssistant_OPENAI::obtainAssistantProperties() {
    return m_properties.get();
}

std::pair<std::string, std::string> KAIAssistant_OPENAI::createAssistant(KAIAssistantProperties_OPENAI* candidate) {
    if (candidate->obtainSettings().model.empty()) {
        return {{}, localizeString("Model is empty")};
    }
    COJson body = buildAssistantBody(*candidate);
    return m_service.postForID(obtainHost(), {"assistants"}, &body, ": p/v1/assistants");
}

std::string KAIAssistant_OPENAI::modifyAssistant(KAIAssistantProperties_OPENAI* candidate) {
    COJson body = buildAssistantBody(*candidate);
    if (body.obtainJsonKeys().empty()) {
        return {};
    }
    auto [id, errorText] =
        m_service.postForID(obtainHost(), {"assistants", m_assistantID}, &body, ": p/v1/assistants/id");
    CF_ASSERT_AT(!errorText.empty() || m_assistantID == id, "this->m_assistantID == j_id->obtainString()", __FILE__,
                 __LINE__);
    return errorText;
}

std::string KAIAssistant_OPENAI::destroyAssistant(std::string id) {
    return m_service.deleteResource(obtainHost(), {"assistants", std::move(id)});
}

std::pair<IKAISession*, std::string> KAIAssistant_OPENAI::createSession() {
    if (m_assistantID.empty()) {
        return {nullptr, "Assistant not initialized, set assistant properties"};
    }
    // Everything that may fail locally comes before the request, so that no unknown thread is left on the service.
    auto session = std::make_unique<KAISession_OPENAI>(*m_properties, m_assistantID);
    m_sessions.reserve(m_sessions.size() + 1);
    auto [threadID, errorText] = m_service.postForID(obtainHost(), {"threads"}, nullptr, ": p/v1/threads");
    if (!errorText.empty()) {
        return {nullptr, std::move(errorText)};
    }
    session->setThreadID(std::move(threadID));
    m_sessions.push_back(session.get());
    return {session.release(), {}};
}

std::pair<IKAISession*, std::string> KAIAssistant_OPENAI::restoreSession(std::string serializedSession) {
    CF_ASSERT(this->m_assistantID.empty());
    if (!m_assistantID.empty()) {
        return {nullptr, "Assistant already exist, cannot restore assistant in serializedSession"};
    }
    auto session = std::make_unique<KAISession_OPENAI>(*m_properties, std::string());
    m_sessions.reserve(m_sessions.size() + 1);
    if (!session->loadSession(std::move(serializedSession), kDefaultHost, m_assistantID)) {
        return {nullptr, localizeString("Cannot load session data")};
    }
    m_sessions.push_back(session.get());
    return {session.release(), {}};
}

std::string KAIAssistant_OPENAI::destroySession(IKAISession* session) {
    auto* const thread = dynamic_cast<KAISession_OPENAI*>(session);
    if (std::find(m_sessions.begin(), m_sessions.end(), thread) == m_sessions.end()) {
        return "Session not found";
    }
    // A copy, made before the first request: nothing may fail between ending the last session and deleting its
    // assistant.
    std::string assistantID = thread->obtainAssistantID();
    std::string errorText = m_service.deleteResource(obtainHost(), {"threads", thread->obtainThreadID()});
    if (!errorText.empty()) {
        return errorText;
    }
    // Meanwhile a callback of the host may have created or destroyed sessions, including this one.
    const auto place = std::find(m_sessions.begin(), m_sessions.end(), thread);
    if (place == m_sessions.end()) {
        return {};
    }
    m_sessions.erase(place);
    if (m_sessions.empty()) {
        // The assistant on the service lives as long as a session uses it. Its id is cleared before the request: if
        // deleting fails, there is nothing left to do, and a callback that throws must not leave an assistant without a
        // session.
        m_assistantID.clear();
        destroyAssistant(std::move(assistantID));
    }
    return {};
}

std::pair<IKAIMessage*, std::string> KAIAssistant_OPENAI::addMessage(IKAISession* session, std::string text) {
    const CMTextStream* const stream = CMTextStream::obtainCurrent();
    auto* const thread = dynamic_cast<KAISession_OPENAI*>(session);
    if (thread == nullptr || text.empty()) {
        return {nullptr, "Session is empty"};
    }
    // A copy: a callback of the host may free the session while an exchange runs.
    const std::string threadID = thread->obtainThreadID();
    if (std::string errorText = postMessage(threadID, text); !errorText.empty()) {
        return {nullptr, std::move(errorText)};
    }
    auto [runID, runError] = createRun(threadID);
    if (!runError.empty()) {
        return {nullptr, std::move(runError)};
    }
    const auto look = [this, &threadID, &runID = runID] { return lookAtRun(threadID, runID); };
    if (std::string errorText = kai::waitForRun(m_clock, look); !errorText.empty()) {
        return {nullptr, std::move(errorText)};
    }
    auto [message, errorText] = fetchAnswer(threadID, runID);
    std::unique_ptr<IKAIMessage> owned(message);
    if (stream != nullptr && owned) {
        tellWhole(*stream, *owned);
    }
    return {owned.release(), std::move(errorText)};
}

std::string KAIAssistant_OPENAI::postMessage(const std::string& threadID, const std::string& text) {
    COJson body;
    body.addKeyValue("role").setString("user");
    body.addKeyValue("content").setString(text);
    return m_service.postForID(obtainHost(), {"threads", threadID, "messages"}, &body, ": p/v1/threads/id/messages")
        .second;
}

std::pair<std::string, std::string> KAIAssistant_OPENAI::createRun(const std::string& threadID) {
    COJson body;
    body.addKeyValue("assistant_id").setString(m_assistantID);
    return m_service.postForID(obtainHost(), {"threads", threadID, "runs"}, &body, ": p/v1/threads/id/runs");
}

kai::RunState KAIAssistant_OPENAI::lookAtRun(const std::string& threadID, const std::string& runID) {
    // The suffix names a POST although this is a GET: hosts rely on this text.
    kai::ServiceAnswer answer =
        m_service.get(obtainHost(), {"threads", threadID, "runs", runID}, {}, ": p/v1/threads/id/runs/id");
    if (!answer.errorText.empty()) {
        return {kai::RunState::Kind::Failed, std::move(answer.errorText)};
    }
    return kai::readRunState(*answer.findJson());
}

std::pair<IKAIMessage*, std::string> KAIAssistant_OPENAI::fetchAnswer(const std::string& threadID,
                                                                      const std::string& runID) {
    auto message = std::make_unique<KAIMessage>();
    kai::ServiceAnswer answer = m_service.get(obtainHost(), {"threads", threadID, "messages"}, {{"run_id", runID}},
                                              ": g/v1/threads/id/messages");
    if (!answer.errorText.empty()) {
        return {nullptr, std::move(answer.errorText)};
    }
    const COJsonValue data = answer.obtainMember("data");
    if (!data.isArray()) {
        return {nullptr, localizeString("Unsupported data format") + ": g/v1/threads/id/messages"};
    }
    for (const COJsonValue item : data.obtainItems()) {
        const COJsonValue createdAt = item.obtainMember("created_at");
        const COJsonValue content = item.obtainMember("content");
        if (createdAt.isNumber() && content.isArray()) {
            message->setTime(createdAt.obtainInteger());
            appendTextSections(*message, content);
        }
    }
    return {message.release(), {}};
}

// The live properties have an empty host if the host program has set blanks.
std::string KAIAssistant_OPENAI::obtainHost() const {
    const std::string& host = m_properties->obtainSettings().apiHost;
    return host.empty() ? kDefaultHost : host;
}
