#include "kai_assistant_chat.h"

#include <algorithm>

#include "cf/utilities.h"
#include "kai_host_callback.h"
#include "kai_message.h"

namespace kai {

namespace {

/// The text with the first placeholder replaced by the value.
std::string expand(std::string_view text, std::string_view placeholder, std::string_view value) {
    std::string expanded(text);
    if (const std::size_t place = expanded.find(placeholder); place != std::string::npos) {
        expanded.replace(place, placeholder.size(), value);
    }
    return expanded;
}

std::string expandModel(std::string_view text, std::string_view model) {
    return expand(text, "{model}", model);
}

HTTP::Params expandKey(std::span<const ChatParam> params, std::string_view apiKey) {
    HTTP::Params expanded;
    for (const ChatParam& param : params) {
        expanded.emplace_back(param.name, expand(param.value, "{key}", apiKey));
    }
    return expanded;
}

}  // namespace

ChatAssistant::ChatAssistant(const ChatProtocol& protocol, std::unique_ptr<ICSHTTPPoolCenter> poolCenter,
                             const std::string& host, const std::string& apiKey)
    : m_protocol(protocol),
      m_queryParams(expandKey(protocol.queryParams, apiKey)),
      m_streamParams(expandKey(protocol.streaming.queryParams, apiKey)),
      m_properties(std::make_unique<KAIAssistantProperties>()),
      m_restSession(std::make_unique<CMRestSession>()),
      m_poolCenter(std::move(poolCenter)) {
    m_streamParams.insert(m_streamParams.end(), m_queryParams.begin(), m_queryParams.end());
    m_restSession->setPoolCenter(m_poolCenter.get());
    if (!m_protocol.authorization.empty()) {
        m_restSession->setAuthorizationHeaderValue(expand(m_protocol.authorization, "{key}", apiKey));
    }
    for (auto& [name, value] : expandKey(m_protocol.headers, apiKey)) {
        m_restSession->addHeaderParam(std::move(name), std::move(value));
    }
    m_properties->changeSettings([&](AssistantSettings& settings) {
        settings.apiHost = cfTrimAsString(host);
        ensureHost(settings);
    });
}

std::pair<std::vector<std::string>, std::string> ChatAssistant::obtainAvailableModels() {
    const std::string url = obtainURL(m_protocol.modelsPath, {});
    auto [rawResponse, transportText] = HTTP::Get(m_restSession.get(), url, m_queryParams, {});
    const std::unique_ptr<CMRestResourceResponse> response(rawResponse);
    if (!transportText.empty()) {
        return {{}, chooseErrorText(m_protocol.readModelsError(response.get()), std::move(transportText))};
    }
    const COJson* json = response ? response->getJson() : nullptr;
    if (json == nullptr) {
        return {{}, localizeString("Invalid response").append(m_protocol.modelsSuffix)};
    }
    std::optional<std::vector<std::string>> models = m_protocol.readModels(*json);
    if (!models) {
        return {{}, localizeString("Unsupported data format").append(m_protocol.modelsSuffix)};
    }
    return {*std::move(models), {}};
}

std::string ChatAssistant::setAssistantProperties(std::function<void(IKAIProperties*)> fill) {
    KAIAssistantProperties fresh;
    if (fill) {
        fill(&fresh);
    }
    m_properties->changeSettings([&](AssistantSettings& settings) {
        fresh.takeOverAssigned(settings);
        if (fresh.isAssigned("temperature")) {
            const auto& [lowest, highest] = m_protocol.temperatures;
            settings.temperature = std::clamp(settings.temperature, lowest, highest);
        }
        ensureHost(settings);
    });
    return {};
}

IKAIProperties* ChatAssistant::obtainAssistantProperties() {
    return new KAIAssistantProperties(*m_properties);
}

std::pair<IKAISession*, std::string> ChatAssistant::createSession() {
    return {m_protocol.createSession(*m_properties, m_protocol).release(), {}};
}

std::pair<IKAISession*, std::string> ChatAssistant::restoreSession(std::string serializedSession) {
    std::unique_ptr<ChatSession> session = m_protocol.createSession(*m_properties, m_protocol);
    if (!session->loadSession(std::move(serializedSession))) {
        return {nullptr, localizeString("Cannot load session data")};
    }
    return {session.release(), {}};
}

std::string ChatAssistant::destroySession(IKAISession* /*session*/) {
    return {};
}

std::pair<IKAIMessage*, std::string> ChatAssistant::addMessage(IKAISession* session, std::string text) {
    const ChatSession* chat = castSession(session);
    if (chat == nullptr) {
        return {nullptr, "Session is empty"};
    }
    // Copies: while the exchange runs, a callback of the host may change the properties and free the session.
    const std::string model = m_properties->obtainSettings().model;
    const std::shared_ptr<ChatHistory> history = chat->obtainHistory();
    const auto fail = [&model](const char* message, std::string_view suffix) {
        return std::pair<IKAIMessage*, std::string>(nullptr, localizeString(message) + expandModel(suffix, model));
    };
    if (model.empty()) {
        return fail("Model is empty", m_protocol.emptyModelSuffix);
    }
    const CMTextStream* stream = CMTextStream::obtainCurrent();
    const bool isStreamed = stream != nullptr && m_protocol.streaming.framing != ChatStreamFraming::None;
    ChatBody body(m_protocol, *m_properties, history, text, isStreamed);
    ChatAnswer answer = isStreamed ? askForPieces(body, model, *stream) : askForWhole(body, model);
    switch (answer.outcome) {
        case ChatAnswer::Outcome::Failed:
            return {nullptr, std::move(answer.text)};
        case ChatAnswer::Outcome::Invalid:
            return fail("Invalid response", m_protocol.invalidReplySuffix);
        case ChatAnswer::Outcome::Unsupported:
            return fail("Unsupported data format", m_protocol.unsupportedReplySuffix);
        case ChatAnswer::Outcome::Complete:
            break;
    }
    if (stream != nullptr && !isStreamed && !answer.text.empty()) {
        stream->tell(answer.text);
    }
    auto message = createTextMessage(KAI_ROLE_ASSISTANT, obtainCurrentTime(), std::move(answer.text));
    history->appendTurn(body.obtainUserMessage(), *message);
    return {message.release(), {}};
}

ChatAnswer ChatAssistant::askForWhole(ChatBody& body, const std::string& model) {
    auto [rawResponse, transportText] =
        HTTP::Post(m_restSession.get(), obtainURL(m_protocol.chatPath, model), &body, m_queryParams, {});
    const std::unique_ptr<CMRestResourceResponse> response(rawResponse);
    if (!transportText.empty()) {
        return {ChatAnswer::Outcome::Failed,
                chooseErrorText(m_protocol.readChatError(response.get()), std::move(transportText))};
    }
    const COJson* json = response ? parseReply(*response) : nullptr;
    if (json == nullptr) {
        return {ChatAnswer::Outcome::Invalid};
    }
    std::optional<std::string> reply = m_protocol.readReply(*json);
    if (!reply) {
        return {ChatAnswer::Outcome::Unsupported};
    }
    return {ChatAnswer::Outcome::Complete, *std::move(reply)};
}

// A parsed document takes several times the memory of its text, so that of a large one is not kept.
const COJson* ChatAssistant::parseReply(CMRestResourceResponse& response) {
    constexpr std::size_t kLargestKept = std::size_t{64} * 1024;
    if (response.getBufferString().size() > kLargestKept) {
        return response.getJson();
    }
    return response.readJson(m_reply) ? &m_reply : nullptr;
}

ChatAnswer ChatAssistant::askForPieces(ChatBody& body, const std::string& model, const CMTextStream& stream) {
    const ChatStreaming& streaming = m_protocol.streaming;
    const std::string url = obtainURL(streaming.path.empty() ? m_protocol.chatPath : streaming.path, model);
    ChatStreamReader reader(m_protocol, stream);
    try {
        auto [rawResponse, transportText] = HTTP::Post(m_restSession.get(), url, &body, m_streamParams, {},
                                                       [&reader](std::string_view bytes) { reader.read(bytes); });
        const std::unique_ptr<CMRestResourceResponse> response(rawResponse);
        ChatAnswer answer = reader.takeAnswer(transportText.empty());
        // After the end mark an answer is complete, however its connection ends.
        if (!transportText.empty() && answer.outcome != ChatAnswer::Outcome::Complete) {
            return {ChatAnswer::Outcome::Failed,
                    chooseErrorText(m_protocol.readChatError(response.get()), std::move(transportText))};
        }
        return answer;
    } catch (const ChatStreamReader::Ended&) {
        return reader.takeAnswer(false);
    }
}

// Refuses a session of another assistant, whatever its class: its settings may name a host that must not see this
// assistant's key.
ChatSession* ChatAssistant::castSession(IKAISession* session) const {
    auto* chat = dynamic_cast<ChatSession*>(session);
    return chat != nullptr && &chat->obtainProperties() == m_properties.get() ? chat : nullptr;
}

std::string ChatAssistant::obtainURL(std::span<const std::string_view> path, const std::string& model) {
    const std::string& host = m_properties->obtainSettings().apiHost;
    if (m_url.path.data() != path.data() || m_url.host != host || m_url.model != model) {
        std::vector<std::string> parts{std::string(m_protocol.scheme) + host};
        for (const std::string_view part : path) {
            parts.push_back(expandModel(part, model));
        }
        m_url = {path, host, model, cfConcatURL(parts)};
    }
    return m_url.url;
}

void ChatAssistant::ensureHost(AssistantSettings& settings) const {
    if (settings.apiHost.empty()) {
        settings.apiHost = m_protocol.defaultHost;
    }
}

}  // namespace kai
