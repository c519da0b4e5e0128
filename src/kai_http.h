#ifndef KAI_HTTP_H
#define KAI_HTTP_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/rest.h"

/// The library's HTTP exchanges. Each blocks until its exchange ends and uses the process-wide settings.
///
/// The caller owns the result's response, also if the error text is not empty; then the response may be null. The text
/// comes from the transport and is empty on success. The content of the response is not examined here.
namespace HTTP {

using Params = std::vector<std::pair<std::string, std::string>>;
using Result = std::pair<CMRestResourceResponse*, std::string>;

/// Replaces the settings of every later exchange.
void setGlobalSettings(const CMRestGlobalSettings& settings);

/// The current settings. A function of the host may replace them, so copy a function in them before calling it.
const CMRestGlobalSettings& obtainGlobalSettings() noexcept;

/// The transport's text for a result code.
std::string describeResult(std::int32_t resultCode);

/// @param session       credential, session headers and pool; borrowed
/// @param url           the complete URL, scheme included
/// @param queryParams   appended to the URL in this order, encoded
/// @param headerParams  sent after the session's headers
Result Get(CMRestSession* session, const std::string& url, const Params& queryParams, const Params& headerParams);

/// @param body      the request's JSON body, taken in pieces before the exchange begins; null: no body
/// @param receiver  receives the body of a successful response as it arrives; the response then has no body. Empty:
///                  none
Result Post(CMRestSession* session, const std::string& url, ICOJsonValue* body, const Params& queryParams,
            const Params& headerParams, CMRestBodyReceiver receiver = {});

Result Delete(CMRestSession* session, const std::string& url);

}  // namespace HTTP

namespace kai {

/// The "message" of the "error" object in a response's JSON body, if there is one.
std::optional<std::string> findErrorMessage(CMRestResourceResponse* response);

/// The service's error text in a failed response: the error message in its JSON body, otherwise the raw body. Empty for
/// a null response.
std::string readErrorBody(CMRestResourceResponse* response);

/// The text for a failed exchange: the service's text, or the transport's if the service's is empty.
std::string chooseErrorText(std::string serviceText, std::string transportText);

/// Whether an id from a service can be a segment of a path: "." and ".." would name another resource.
bool isPathSegment(std::string_view id) noexcept;

/// The id as a segment of a path, percent-encoded outside A-Z a-z 0-9 - . _ ~
std::string encodePathSegment(std::string_view id);

}  // namespace kai

#endif
