#ifndef HOST_PROVIDER_TABLE_H
#define HOST_PROVIDER_TABLE_H

#include <string>
#include <string_view>
#include <vector>

#include "kai.h"

namespace host {

/// What the program knows of a provider. A new one is one row of the table in provider_table.cpp.
struct Provider {
    std::string_view name;  ///< as --provider takes it
    KAIAssistantType type;
    std::vector<std::string_view> keyVariables;  ///< environment variables of the key, first one first; none: no key
    bool isHistoryLocal;                         ///< the conversation is in the session text, not kept on the service
    bool isContextWindowShort;                   ///< the server may cut a long prompt off unless it is set up for it
};

[[nodiscard]] const std::vector<Provider>& obtainProviders();

/// The provider of a name; null for an unknown one.
[[nodiscard]] const Provider* findProvider(std::string_view name);

/// The names with commas between them.
[[nodiscard]] std::string listProviderNames();

}  // namespace host

#endif
