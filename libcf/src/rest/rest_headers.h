#ifndef CF_SRC_REST_HEADERS_H
#define CF_SRC_REST_HEADERS_H

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cf {

/// Whether a header may be sent: its name is an HTTP token and its value has no control character.
[[nodiscard]] bool isSendableHeader(std::string_view name, std::string_view value) noexcept;

/// Whether a header's value has no control character.
[[nodiscard]] bool isSendableHeaderValue(std::string_view value) noexcept;

/// The header lines of an exchange as a libcurl list. Its memory is reused by the next exchange.
class RestHeaderList {
public:
    void clear() noexcept;
    /// Adds a header. A header with an empty value is sent as well.
    void addHeader(std::string_view name, std::string_view value);
    /// Stops libcurl from adding this header by itself.
    void suppressHeader(std::string_view name);

    /// The list, null when it is empty. Valid until the next change.
    [[nodiscard]] curl_slist* obtainList();

private:
    void addLine(std::string_view name, std::string_view separator, std::string_view value);

    std::string m_lines;
    std::vector<std::size_t> m_lineStarts;
    std::vector<curl_slist> m_nodes;
};

}  // namespace cf

#endif
