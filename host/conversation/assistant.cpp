#include "conversation/assistant.h"

#include <memory>
#include <utility>

#include "cf/json.h"
#include "cf/stream.h"
#include "conversation/advice.h"
#include "host_error.h"
#include "terminal/interrupts.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

CMVariantMap makeTextMap(const std::map<std::string, std::string>& texts) {
    return {texts.begin(), texts.end()};
}

void fillProperties(IKAIProperties& properties, const AssistantSettings& settings) {
    const auto setIfGiven = [&](const char* key, const std::string& value) {
        if (!value.empty()) {
            properties.setProperty(key, value);
        }
    };
    setIfGiven("api_host", settings.apiHost);
    setIfGiven("model", settings.model);
    setIfGiven("temperature", settings.temperature);
    if (settings.userInstructions) {
        properties.setProperty("user_instructions", *settings.userInstructions);
    }
    if (!settings.systemInstructions.empty()) {
        properties.setProperty("system_instructions", makeTextMap(settings.systemInstructions));
    }
    if (settings.structure.getValueType() != CMVariant::ValueType::Null) {
        properties.setProperty("db_structure", settings.structure);
    }
}

std::string joinSections(IKAIMessage& message) {
    std::string text;
    for (IKAIMessageSection* section : message.obtainSections()) {
        text += (text.empty() ? "" : "\n") + std::string(section->obtainText());
    }
    return text;
}

/// What exists on the service, with the service's names.
std::string describeLeftovers(const std::string& sessionText) {
    const COJson session{std::string_view(sessionText)};
    return "the assistant '" + makeOneLine(session.obtainMember("assistant_id").obtainString()) + "' and the thread '" +
           makeOneLine(session.obtainMember("thread_id").obtainString()) + "'";
}

}  // namespace

SessionSummary summarizeSession(const std::string& sessionText) {
    const COJson session{std::string_view(sessionText)};
    const auto readText = [&](std::string_view key) { return std::string(session.obtainMember(key).obtainString()); };
    SessionSummary saved;
    saved.settings.apiHost = readText("api_host");
    saved.settings.model = readText("model");
    saved.settings.userInstructions = readText("user_instructions");
    for (const COJsonValue entry : session.obtainMember("system_instructions").obtainItems()) {
        saved.settings.systemInstructions.insert_or_assign(std::string(entry.obtainMember("key").obtainString()),
                                                           std::string(entry.obtainMember("value").obtainString()));
    }
    if (std::string structure = readText("db_structure"); !structure.empty()) {
        saved.settings.structure = std::move(structure);
    }
    for (const COJsonValue message : session.obtainMember("messages").obtainItems()) {
        ++saved.messageCount;
        saved.messageBytes += message.obtainMember("content").obtainString().size();
    }
    return saved;
}

Assistant::Assistant(const Provider& provider, const ApiKey& key, const std::string& apiHost, ExchangeWatch& watch,
                     Console& console)
    : m_provider(provider), m_key(key), m_watch(watch), m_console(console), m_isDefaultHost(apiHost.empty()) {
    std::unique_ptr<ICSHTTPPoolCenter> pool(cfCreateHTTPPoolCenter());
    m_assistant.reset(KAICreateAssistant(provider.type, pool.get(), key.obtainText(), apiHost));
    if (m_assistant == nullptr) {
        throw HostError(ExitCode::Usage, "the provider " + std::string(provider.name) +
                                             " is not built into this libkai; choose another with --provider");
    }
    static_cast<void>(pool.release());  // the assistant owns it now
}

Assistant::~Assistant() {
    if (m_isOnService && !m_isKept) {
        try {
            cleanUp();
        } catch (const std::exception& error) {
            m_console.note("cannot clean up on the service: " + makeOneLine(error.what()));
        }
    }
}

std::vector<std::string> Assistant::listModels() {
    const ExchangeWatch::Request request(m_watch, ExchangeWatch::Cancelling::AtOnce);
    auto [models, error] = m_assistant->obtainAvailableModels();
    if (!error.empty()) {
        fail(error);
    }
    return std::move(models);
}

void Assistant::configure(const AssistantSettings& settings) {
    const ExchangeWatch::Request request(m_watch, ExchangeWatch::Cancelling::Reluctant);
    const std::string error =
        m_assistant->setAssistantProperties([&](IKAIProperties* properties) { fillProperties(*properties, settings); });
    if (!error.empty()) {
        fail(error);
    }
    m_isOnService = !m_provider.isHistoryLocal;
}

void Assistant::begin() {
    const ExchangeWatch::Request request(m_watch, ExchangeWatch::Cancelling::Reluctant);
    auto [session, error] = m_assistant->createSession();
    m_session.reset(session);
    if (!error.empty()) {
        fail(error);
    }
}

void Assistant::resume(const std::string& sessionText) {
    auto [session, error] = m_assistant->restoreSession(sessionText);
    m_session.reset(session);
    if (!error.empty()) {
        throw HostError(ExitCode::Usage, "cannot continue the conversation: " + makeOneLine(error) +
                                             "; the file is damaged or belongs to another provider");
    }
    m_isKept = true;
    m_isOnService = !m_provider.isHistoryLocal;
    m_messageBytes = summarizeSession(sessionText).messageBytes;
}

std::string Assistant::ask(const std::string& question, const PieceReceiver& receive) {
    const ExchangeWatch::Request request(m_watch, ExchangeWatch::Cancelling::AtOnce);
    bool hasPieces = false;
    const CMTextStream stream([&](std::string_view piece) {
        m_watch.endProgress();
        hasPieces = true;
        receive(piece);
    });
    auto [answer, error] = m_assistant->addMessage(m_session.get(), question);
    const KAIPtr<IKAIMessage> message(answer);
    if (!error.empty()) {
        fail(error);
    }
    std::string text = joinSections(*message);
    if (!hasPieces && !text.empty()) {
        m_watch.endProgress();
        receive(text);
    }
    m_messageBytes += question.size() + text.size();
    return text;
}

void Assistant::deleteOnService() {
    std::string error;
    {
        const ExchangeWatch::Request request(m_watch, ExchangeWatch::Cancelling::AtOnce);
        error = m_assistant->destroySession(m_session.get());
    }
    if (!error.empty()) {
        fail(error);
    }
    m_isOnService = false;
}

/// Deletes what exists on the service. The assistant there is deleted with its last thread: if there is no thread, one
/// is created. A failed request is tried once more, because nothing else will ever delete it.
void Assistant::cleanUp() {
    Interrupts::clear();
    for (int attempt = 0; m_isOnService; ++attempt) {
        try {
            if (m_session == nullptr) {
                begin();
            }
            deleteOnService();
        } catch (const HostError& error) {
            if (attempt == 0 && error.obtainCode() != ExitCode::Cancelled) {
                continue;
            }
            m_console.note("cannot clean up on the service: " + std::string(error.what()));
            m_console.note("left on the service: " +
                           (m_session != nullptr ? describeLeftovers(serialize()) : std::string("an assistant")) +
                           "; delete it there");
            return;
        }
    }
}

std::string Assistant::obtainApiHost() const {
    return readProperty("api_host").stringValue();
}

std::string Assistant::obtainCombinedInstructions() const {
    return readProperty("combined_instructions").stringValue();
}

std::size_t Assistant::measurePrompt() const {
    return obtainCombinedInstructions().size() + m_messageBytes;
}

CMVariant Assistant::readProperty(const std::string& key) const {
    IKAIProperties* properties = m_assistant->obtainAssistantProperties();
    // An OpenAI assistant returns its own object, the others a copy.
    const KAIPtr<IKAIProperties> copy(m_provider.type == KAIAssistantType::OPENAI ? nullptr : properties);
    return properties->obtainProperty(key);
}

void Assistant::fail(const std::string& errorText) const {
    if (Interrupts::isRequested()) {
        throw HostError(ExitCode::Cancelled, "cancelled; the conversation is as it was");
    }
    FailedExchange exchange = m_watch.describeLast();
    exchange.provider = m_provider.name;
    exchange.isDefaultHost = m_isDefaultHost;
    exchange.keyOrigin = m_key.obtainOrigin();
    throw HostError(ExitCode::Provider, std::string(m_provider.name) + " at " + makeOneLine(obtainApiHost()) + ": " +
                                            makeOneLine(findServiceWords(errorText)) + adviseOn(exchange));
}

}  // namespace host
