#ifndef HOST_PROVIDER_TABLE_H
#define HOST_PROVIDER_TABLE_H

#include <string>
#include <string_view>
#include <vector>

#include "kai.h"

namespace host {

/// Where a service tells more of its models than their names. What it says is read by askModelWindow.
struct ModelDetails {
    std::string_view scheme{};
    std::string_view path{};          ///< behind the host; empty: it tells nothing
    std::string_view list{};          ///< the member that holds the list
    std::string_view name{};          ///< the member of an entry that holds the name
    std::string_view namePrefix{};    ///< what may stand before the name there
    std::string_view nameSuffix{};    ///< what may stand behind it
    std::string_view keyParameter{};  ///< the query parameter of the key; empty: it goes into a header
};

/// What the program knows of a provider. A new one is one row of the table in provider_table.cpp.
struct Provider {
    std::string_view name;  ///< as --provider takes it
    KAIAssistantType type;
    std::vector<std::string_view> keyVariables;  ///< environment variables of the key, first one first; none: no key
    bool isHistoryLocal;                         ///< the conversation is in the session text, not kept on the service
    bool isContextWindowShort;                   ///< the server may cut a long prompt off unless it is set up for it
    ModelDetails modelDetails{};
};

[[nodiscard]] const std::vector<Provider>& obtainProviders();

/// The provider of a name; null for an unknown one.
[[nodiscard]] const Provider* findProvider(std::string_view name);

/// The names with commas between them.
[[nodiscard]] std::string listProviderNames();

}  // namespace host

#endif
