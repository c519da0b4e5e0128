#include <memory>
#include <type_traits>
#include <utility>

#include "kai.h"
#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"
#include "kai_assistant_openai.h"
#include "kai_host_callback.h"
#include "kai_http.h"

namespace {

using PoolPtr = std::unique_ptr<ICSHTTPPoolCenter>;

template <class Assistant>
IKAIAssistant* create(PoolPtr pool, const std::string& host, const std::string& apiKey) {
    if constexpr (std::is_constructible_v<Assistant, PoolPtr, const std::string&, const std::string&>) {
        return new Assistant(std::move(pool), host, apiKey);
    } else {
        return new Assistant(std::move(pool), host);
    }
}

/// For a chat-completion provider without a class of its own.
template <const kai::ChatProtocol& (*obtainProtocol)()>
[[maybe_unused]] IKAIAssistant* createChat(PoolPtr pool, const std::string& host, const std::string& apiKey) {
    return new kai::ChatAssistant(obtainProtocol(), std::move(pool), host, apiKey);
}

struct Provider {
    KAIAssistantType type;
    IKAIAssistant* (*create)(PoolPtr pool, const std::string& host, const std::string& apiKey);
};

constexpr Provider kProviders[] = {
    {KAIAssistantType::OPENAI, create<KAIAssistant_OPENAI>},
    {KAIAssistantType::GOOGLE, create<KAIAssistant_GOOGLE>},
    {KAIAssistantType::DEEPSEEK, create<KAIAssistant_DEEPSEEK>},
    {KAIAssistantType::OLLAMA, create<KAIAssistant_OLLAMA>},
};

}  // namespace

IKAIAssistant* KAICreateAssistant(KAIAssistantType type, ICSHTTPPoolCenter* poolCenter, const std::string& apiKey,
                                  const std::string& host) {
    for (const Provider& provider : kProviders) {
        if (provider.type == type) {
            // Owned from here on, so that a constructor that throws leaks no pool.
            return provider.create(PoolPtr(poolCenter), host, apiKey);
        }
    }
    return nullptr;
}

void KAIFreeObject(IKAIObject* object) {
    delete object;
}

void KAIRegisterCallback(void (*callback)(const char* eventName, void* data)) {
    kai::setHostCallback(callback);
}

void KAISetHTTPSettings(const CMRestGlobalSettings& settings) {
    HTTP::setGlobalSettings(settings);
}
