#ifndef CF_SRC_REST_URL_H
#define CF_SRC_REST_URL_H

#include <string>
#include <string_view>
#include <vector>

#include "cf/rest.h"

namespace cf {

/// The URL with percent-encoded parameters appended to its query, before its fragment.
[[nodiscard]] std::string buildRequestURL(const std::string& url, const CMRestParams& queryParams);

/// Changes the scheme of an https URL to http when its server is one of `hosts` ("name" or "name:port").
void usePlainHTTP(std::string& url, const std::vector<std::string>& hosts);

/// Success if a URL may be requested, otherwise why not. Its scheme must be http or https and its authority an ASCII
/// host with or without a port; it must not contain a blank or a control character.
[[nodiscard]] CMRestResult checkURL(std::string_view url) noexcept;

/// Whether the scheme of the URL is "https".
[[nodiscard]] bool isTLSURL(std::string_view url) noexcept;

/// The URL in a form that may be shown to people: query values, the fragment and user information are replaced by
/// "***", and control characters are percent-encoded. If the authority is malformed, the rest may contain a credential
/// anywhere, so only the scheme is shown.
[[nodiscard]] std::string redactURL(std::string_view url);

}  // namespace cf

#endif
