#include "conversation/provider_table.h"

namespace host {

const std::vector<Provider>& obtainProviders() {
    static const std::vector<Provider> providers{
        {"deepseek",
         KAIAssistantType::DEEPSEEK,
         {"DEEPSEEK_API_KEY"},
         true,
         false,
         {.scheme = "https", .path = "/models", .list = "data", .name = "id"}},
        {"google",
         KAIAssistantType::GOOGLE,
         {"GEMINI_API_KEY", "GOOGLE_API_KEY"},
         true,
         false,
         {.scheme = "https",
          .path = "/v1beta/models",
          .list = "models",
          .name = "name",
          .namePrefix = "models/",
          .keyParameter = "key"}},
        // The models in memory, with the windows that they were loaded with.
        {"ollama",
         KAIAssistantType::OLLAMA,
         {},
         true,
         true,
         {.scheme = "http", .path = "/api/ps", .list = "models", .name = "name", .nameSuffix = ":latest"}},
        {"openai", KAIAssistantType::OPENAI, {"OPENAI_API_KEY"}, false, false},
    };
    return providers;
}

const Provider* findProvider(std::string_view name) {
    for (const Provider& provider : obtainProviders()) {
        if (provider.name == name) {
            return &provider;
        }
    }
    return nullptr;
}

std::string listProviderNames() {
    std::string names;
    for (const Provider& provider : obtainProviders()) {
        names += (names.empty() ? "" : ", ") + std::string(provider.name);
    }
    return names;
}

}  // namespace host
