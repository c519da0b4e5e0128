#include "bench_assistant.h"

#include <stdexcept>
#include <utility>

namespace {

void requireSuccess(const char* operation, const std::string& errorText) {
    if (!errorText.empty()) {
        throw std::runtime_error(std::string(operation) + ": " + errorText);
    }
}

}  // namespace

KAIAssistantType obtainProviderType(const std::string& provider) {
    if (provider == "deepseek") {
        return KAIAssistantType::DEEPSEEK;
    }
    if (provider == "google") {
        return KAIAssistantType::GOOGLE;
    }
    if (provider == "ollama") {
        return KAIAssistantType::OLLAMA;
    }
    throw std::runtime_error("unknown provider: " + provider);
}

bool isTLSProvider(const std::string& provider) {
    return obtainProviderType(provider) != KAIAssistantType::OLLAMA;
}

void trustServer(const BenchServer& server) {
    CMRestGlobalSettings settings;
    settings.caBundleFile = server.obtainBundleFile();
    KAISetHTTPSettings(settings);
}

void setProperty(IKAIAssistant& assistant, const std::string& key, const std::string& value) {
    requireSuccess("setAssistantProperties", assistant.setAssistantProperties([&](IKAIProperties* properties) {
        properties->setProperty(key, value);
    }));
}

AssistantPtr createAssistant(const std::string& provider, const std::string& host) {
    AssistantPtr assistant(
        KAICreateAssistant(obtainProviderType(provider), cfCreateHTTPPoolCenter(), "sk-0123456789abcdef", host));
    requireSuccess("setAssistantProperties", assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("model", std::string("bench-model"));
        properties->setProperty("user_instructions", std::string("Answer in SQL for SQLite, then explain it briefly."));
    }));
    return assistant;
}

SessionPtr createSession(IKAIAssistant& assistant) {
    auto [session, errorText] = assistant.createSession();
    requireSuccess("createSession", errorText);
    return SessionPtr(session);
}

SessionPtr restoreSession(IKAIAssistant& assistant, std::string text) {
    auto [session, errorText] = assistant.restoreSession(std::move(text));
    requireSuccess("restoreSession", errorText);
    return SessionPtr(session);
}

MessagePtr addMessage(IKAIAssistant& assistant, IKAISession& session, std::string text) {
    auto [message, errorText] = assistant.addMessage(&session, std::move(text));
    requireSuccess("addMessage", errorText);
    return MessagePtr(message);
}
