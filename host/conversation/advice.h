#ifndef HOST_ADVICE_H
#define HOST_ADVICE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace host {

/// What is known of the last exchange of a request that failed.
struct FailedExchange {
    bool hasRun = false;          ///< false: the library refused the request before it asked anybody
    std::int32_t resultCode = 0;  ///< below 100 a CMRestResult, otherwise the HTTP status
    std::string_view provider;    ///< its name, as --provider takes it
    bool isDefaultHost = false;   ///< the provider's own service
    bool isCAFileNamed = false;
    std::string keyOrigin;  ///< how the user gives the key another value; empty: there is none
};

/// What the user can do about a failed request, to be put behind the error's text; empty where there is nothing to say.
[[nodiscard]] std::string adviseOn(const FailedExchange& exchange);

/// The words of a service's error. An error text that is the raw body of a response is read: the message in a JSON
/// object, in whichever of the usual members, or the title of a HTML page. Any other text is returned as it is.
[[nodiscard]] std::string findServiceWords(const std::string& errorText);

}  // namespace host

#endif
