#ifndef CF_SRC_REST_URL_H
#define CF_SRC_REST_URL_H

#include <string>
#include <string_view>
#include <vector>

#include "cf/rest.h"

/// The URL with the parameters behind its query (before its fragment), each percent-encoded.
[[nodiscard]] std::string buildRequestURL(const std::string& url, const CMRestParams& queryParams);

/// Turns an https URL of one of the hosts ("name" or "name:port") into one of plain HTTP.
void usePlainHTTP(std::string& url, const std::vector<std::string>& hosts);

/// Whether a URL may be requested: http or https, an authority with a sound port, no blank, no control character.
[[nodiscard]] bool isRequestableURL(std::string_view url) noexcept;

/// Whether the scheme of the URL is "https".
[[nodiscard]] bool isTLSURL(std::string_view url) noexcept;

/// The URL as it may be shown: query values, the fragment and user information replaced by "***", control characters
/// percent-encoded. Of a URL whose authority is not sound, where a credential may stand anywhere, only the scheme.
[[nodiscard]] std::string redactURL(std::string_view url);

#endif
