#ifndef CF_SRC_REST_HEADERS_H
#define CF_SRC_REST_HEADERS_H

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Whether a header can be sent: its name a token of HTTP, its value without control characters.
[[nodiscard]] bool isSendableHeader(std::string_view name, std::string_view value) noexcept;

/// Whether a header's value has no control character.
[[nodiscard]] bool isSendableHeaderValue(std::string_view value) noexcept;

/// The header lines of one exchange as libcurl takes them. It is filled anew for each exchange and keeps its memory.
class CMRestHeaderList {
public:
    void clear() noexcept;
    /// Adds a header; it is sent with an empty value too.
    void addHeader(std::string_view name, std::string_view value);
    /// Keeps libcurl from sending a header of its own accord.
    void suppressHeader(std::string_view name);

    /// The list, null when it is empty. Valid until the next change.
    [[nodiscard]] curl_slist* obtainList();

private:
    void addLine(std::string_view name, std::string_view separator, std::string_view value);

    std::string m_lines;
    std::vector<std::size_t> m_lineStarts;
    std::vector<curl_slist> m_nodes;
};

#endif
