#include <memory>

#include "kai.h"
#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"
#include "kai_assistant_openai.h"
#include "kai_http.h"
#include "kai_localization.h"

IKAIAssistant* KAICreateAssistant(KAIAssistantType type, ICSHTTPPoolCenter* poolCenter, const std::string& apiKey,
                                  const std::string& host) {
    // Owned from here on, so that a constructor that throws leaks no pool; an unknown type gives it back.
    std::unique_ptr<ICSHTTPPoolCenter> ownedPool(poolCenter);
    switch (type) {
        case KAIAssistantType::OPENAI:
            return new KAIAssistant_OPENAI(std::move(ownedPool), host, apiKey);
        case KAIAssistantType::GOOGLE:
            return new KAIAssistant_GOOGLE(std::move(ownedPool), host, apiKey);
        case KAIAssistantType::DEEPSEEK:
            return new KAIAssistant_DEEPSEEK(std::move(ownedPool), host, apiKey);
        case KAIAssistantType::OLLAMA:
            return new KAIAssistant_OLLAMA(std::move(ownedPool), host);
        default:
            ownedPool.release();
            return nullptr;
    }
}

void KAIFreeObject(IKAIObject* object) {
    delete object;
}

void KAIRegisterCallback(void (*callback)(const char* eventName, void* data)) {
    setHostCallback(callback);
}

void KAISetHTTPSettings(const CMRestGlobalSettings& settings) {
    HTTP::setGlobalSettings(settings);
}
