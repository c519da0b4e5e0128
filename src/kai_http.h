#ifndef KAI_HTTP_H
#define KAI_HTTP_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cf/rest.h"

/// The library's HTTP exchanges. Each blocks until its exchange ends and runs with the process-wide settings.
///
/// The result's response is owned by the caller, also when the error text is not empty; it may be null then. The text
/// is the transport's own and empty on success. What the response says is not looked at here.
namespace HTTP {

using Params = std::vector<std::pair<std::string, std::string>>;
using Result = std::pair<CMRestResourceResponse*, std::string>;

/// Replaces the settings of every later exchange.
void setGlobalSettings(const CMRestGlobalSettings& settings);

/// The settings as they stand. What the host calls may replace them, so whoever calls a function of theirs copies it
/// first.
const CMRestGlobalSettings& obtainGlobalSettings() noexcept;

/// The transport's text for a result code.
std::string describeResult(std::int32_t resultCode);

/// @param session      credential, session headers and pool; borrowed
/// @param url          the complete URL, scheme included
/// @param queryParams  appended to the URL in this order, encoded
/// @param headerParams  sent behind the session's headers
Result Get(CMRestSession* session, const std::string& url, const Params& queryParams, const Params& headerParams);

/// @param body      the request's JSON body, in pieces taken before the exchange begins; null: no body
/// @param receiver  told of the body of a successful response as it comes, which the response then does not hold;
///                  empty: none
Result Post(CMRestSession* session, const std::string& url, ICOJsonValue* body, const Params& queryParams,
            const Params& headerParams, CMRestBodyReceiver receiver = {});

Result Delete(CMRestSession* session, const std::string& url);

}  // namespace HTTP

namespace kai {

/// The "message" of the "error" object in a response's JSON body, where there is one.
std::optional<std::string> findErrorMessage(CMRestResourceResponse* response);

/// What a failed response says for itself: the error message in its JSON body, otherwise the raw body. Empty for a null
/// response.
std::string readErrorBody(CMRestResourceResponse* response);

/// The text for a failed exchange: what the service says, otherwise what the transport says.
std::string chooseErrorText(std::string serviceText, std::string transportText);

/// Whether an id that a service gave can stand in a path: "." and ".." would name another resource.
bool isPathSegment(std::string_view id) noexcept;

/// The id as a segment of a path, percent-encoded outside A-Z a-z 0-9 - . _ ~
std::string encodePathSegment(std::string_view id);

}  // namespace kai

#endif
