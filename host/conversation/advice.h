#ifndef HOST_ADVICE_H
#define HOST_ADVICE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace host {

/// What is known about the last exchange of a failed request.
struct FailedExchange {
    bool hasRun = false;          ///< false: the library refused the request before any exchange
    std::int32_t resultCode = 0;  ///< below 100 a CMRestResult, otherwise the HTTP status
    std::string_view provider;    ///< its name, as in --provider
    bool isDefaultHost = false;   ///< whether the host is the provider's own service
    bool isCAFileNamed = false;
    std::string keyOrigin;  ///< where the user can change the key; empty: there is no key
};

/// What the user can do about a failed request, to be appended to the error's text; empty if there is no advice.
[[nodiscard]] std::string adviseOn(const FailedExchange& exchange);

/// The readable message of a service's error. If the error text is the raw body of a response: the message in a JSON
/// object, in any of the usual members, or the title of an HTML page. Any other text is returned unchanged.
[[nodiscard]] std::string findServiceWords(const std::string& errorText);

}  // namespace host

#endif
