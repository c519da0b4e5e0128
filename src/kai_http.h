#ifndef KAI_HTTP_H
#define KAI_HTTP_H

#include <optional>
#include <string>
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

/// The "message" of the "error" object in a response's JSON body, where there is one.
std::optional<std::string> findErrorMessage(CMRestResourceResponse* response);

/// What a failed response says for itself: the error message in its JSON body, otherwise the raw body. Empty for a null
/// response.
std::string readErrorBody(CMRestResourceResponse* response);

#endif
