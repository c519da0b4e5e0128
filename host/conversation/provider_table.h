#ifndef HOST_PROVIDER_TABLE_H
#define HOST_PROVIDER_TABLE_H

#include <string>
#include <string_view>
#include <vector>

#include "kai.h"

namespace host {

/// Where a service's details about its models are. askModelWindow reads them.
struct ModelDetails {
    std::string_view scheme{};
    std::string_view path{};          ///< after the host; empty: no details
    std::string_view list{};          ///< the member with the list
    std::string_view name{};          ///< the member of an entry with the name
    std::string_view namePrefix{};    ///< may precede the name there
    std::string_view nameSuffix{};    ///< may follow the name there
    std::string_view keyParameter{};  ///< the query parameter of the key; empty: it goes into a header
};

/// The program's data about a provider. A new provider is one row of the table in provider_table.cpp.
struct Provider {
    std::string_view name;  ///< as in --provider
    KAIAssistantType type;
    std::vector<std::string_view>
        keyVariables;           ///< environment variables of the key, in order of precedence; none: no key
    bool isHistoryLocal;        ///< the conversation is in the session text, not on the service
    bool isContextWindowShort;  ///< the server may truncate a long prompt unless it is configured for it
    ModelDetails modelDetails{};
};

[[nodiscard]] const std::vector<Provider>& obtainProviders();

/// The provider with this name; null if there is none.
[[nodiscard]] const Provider* findProvider(std::string_view name);

/// The names with commas between them.
[[nodiscard]] std::string listProviderNames();

}  // namespace host

#endif
