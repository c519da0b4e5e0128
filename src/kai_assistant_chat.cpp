#include "kai_assistant_chat.h"

#include <algorithm>

#include "cf/utilities.h"
#include "kai_localization.h"

namespace {

std::string expandModel(std::string_view text, std::string_view model) {
    constexpr std::string_view kPlaceholder = "{model}";
    std::string expanded(text);
    if (const std::size_t place = expanded.find(kPlaceholder); place != std::string::npos) {
        expanded.replace(place, kPlaceholder.size(), model);
    }
    return expanded;
}

/// The text for a failed exchange: what the service says, otherwise what the transport says.
std::string chooseErrorText(std::string serviceText, std::string transportText) {
    return serviceText.empty() ? std::move(transportText) : std::move(serviceText);
}

void clampTemperature(KAIAssistantSettings& settings) {
    settings.temperature = std::clamp(settings.temperature, 0.0, 2.0);
}

/// Copies a field and marks its key as assigned, if it was assigned in the source.
template <class Field>
void takeOverField(KAIAssistantSettings& target, KAIAssistantSettings& source, const char* key,
                   Field KAIAssistantSettings::*field) {
    if (source.assignedKeys.find(key) != source.assignedKeys.end()) {
        target.*field = std::move(source.*field);
        target.assignedKeys.insert(key);
    }
}

void takeOverAssigned(KAIAssistantSettings& target, KAIAssistantSettings& source) {
    source.apiHost = cfTrimAsString(source.apiHost);
    takeOverField(target, source, "api_host", &KAIAssistantSettings::apiHost);
    takeOverField(target, source, "model", &KAIAssistantSettings::model);
    takeOverField(target, source, "temperature", &KAIAssistantSettings::temperature);
    takeOverField(target, source, "user_instructions", &KAIAssistantSettings::userInstructions);
    takeOverField(target, source, "system_instructions", &KAIAssistantSettings::systemInstructions);
    takeOverField(target, source, "db_structure", &KAIAssistantSettings::databaseStructure);
}

}  // namespace

KAIAssistantChat::KAIAssistantChat(const KAIChatProtocol& protocol, std::unique_ptr<ICSHTTPPoolCenter> poolCenter,
                                   const std::string& host, const std::string& apiKey)
    : m_protocol(protocol),
      m_apiKey(apiKey),
      m_properties(std::make_unique<KAIAssistantProperties>()),
      m_restSession(std::make_unique<CMRestSession>()),
      m_poolCenter(std::move(poolCenter)) {
    m_restSession->setPoolCenter(m_poolCenter.get());
    if (m_protocol.authentication == KAIChatAuthentication::BearerHeader) {
        m_restSession->setAuthorizationHeaderValue("Bearer " + m_apiKey);
    }
    m_properties->changeSettings().apiHost = cfTrimAsString(host);
    ensureHost(m_properties->changeSettings());
}

std::pair<std::vector<std::string>, std::string> KAIAssistantChat::obtainAvailableModels() {
    const std::string url = buildURL(m_properties->obtainSettings().apiHost, m_protocol.modelsPath, {});
    auto [rawResponse, transportText] = HTTP::Get(m_restSession.get(), url, buildQueryParams(), {});
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

std::string KAIAssistantChat::setAssistantProperties(std::function<void(IKAIProperties*)> fill) {
    KAIAssistantProperties fresh;
    if (fill) {
        fill(&fresh);
    }
    if (fresh.isAssigned("temperature")) {
        clampTemperature(fresh.changeSettings());
    }
    KAIAssistantSettings settings = m_properties->obtainSettings();
    takeOverAssigned(settings, fresh.changeSettings());
    ensureHost(settings);
    m_properties->changeSettings() = std::move(settings);
    return {};
}

IKAIProperties* KAIAssistantChat::obtainAssistantProperties() {
    return new KAIAssistantProperties(*m_properties);
}

std::pair<IKAISession*, std::string> KAIAssistantChat::createSession() {
    return {m_protocol.createSession(*m_properties).release(), {}};
}

std::pair<IKAISession*, std::string> KAIAssistantChat::restoreSession(std::string serializedSession) {
    std::unique_ptr<KAISessionChat> session = m_protocol.createSession(*m_properties);
    if (!session->loadSession(serializedSession, m_protocol.defaultHost)) {
        return {nullptr, localizeString("Cannot load session data")};
    }
    return {session.release(), {}};
}

std::string KAIAssistantChat::destroySession(IKAISession* /*session*/) {
    return {};
}

std::pair<IKAIMessage*, std::string> KAIAssistantChat::addMessage(IKAISession* session, std::string text) {
    KAISessionChat* chat = m_protocol.castSession(session);
    if (chat == nullptr) {
        return {nullptr, "Session is empty"};
    }
    // A copy: a callback of the host may change the properties while the exchange runs.
    const std::string model = chat->obtainProperties().obtainSettings().model;
    const auto fail = [&model](const char* message, std::string_view suffix) {
        return std::pair<IKAIMessage*, std::string>(nullptr, localizeString(message) + expandModel(suffix, model));
    };
    if (model.empty()) {
        return fail("Model is empty", m_protocol.emptyModelSuffix);
    }
    auto [rawResponse, transportText] = sendTurn(*chat, text);
    const std::unique_ptr<CMRestResourceResponse> response(rawResponse);
    if (!transportText.empty()) {
        return {nullptr, chooseErrorText(m_protocol.readChatError(response.get()), std::move(transportText))};
    }
    const COJson* json = response ? response->getJson() : nullptr;
    if (json == nullptr) {
        return fail("Invalid response", m_protocol.invalidReplySuffix);
    }
    std::optional<std::string> reply = m_protocol.readReply(*json);
    if (!reply) {
        return fail("Unsupported data format", m_protocol.unsupportedReplySuffix);
    }
    auto message = createTextMessage(KAI_ROLE_ASSISTANT, obtainCurrentTime(), *reply);
    chat->appendTurn(std::move(text), *std::move(reply));
    return {message.release(), {}};
}

HTTP::Result KAIAssistantChat::sendTurn(const KAISessionChat& session, std::string_view text) const {
    const KAIAssistantProperties& properties = session.obtainProperties();
    const KAIAssistantSettings& settings = properties.obtainSettings();
    const std::string instructions = properties.obtainCombinedInstructions();
    const KAIChatTurn turn{settings, properties.isAssigned("temperature"), instructions, session.obtainHistory(), text};
    KAIChatBody body(turn, m_protocol.writeChatBody);
    const std::string url = buildURL(settings.apiHost, m_protocol.chatPath, settings.model);
    return HTTP::Post(m_restSession.get(), url, &body, buildQueryParams(), {});
}

HTTP::Params KAIAssistantChat::buildQueryParams() const {
    if (m_protocol.authentication == KAIChatAuthentication::KeyParameter) {
        return {{"key", m_apiKey}};
    }
    return {};
}

std::string KAIAssistantChat::buildURL(const std::string& host, std::span<const std::string_view> path,
                                       std::string_view model) const {
    std::vector<std::string> parts{std::string(m_protocol.scheme) + host};
    for (const std::string_view part : path) {
        parts.push_back(expandModel(part, model));
    }
    return cfConcatURL(parts);
}

void KAIAssistantChat::ensureHost(KAIAssistantSettings& settings) const {
    if (settings.apiHost.empty()) {
        settings.apiHost = m_protocol.defaultHost;
    }
}
