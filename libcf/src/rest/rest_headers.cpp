#include "rest/rest_headers.h"

#include <algorithm>

#include "text/characters.h"

namespace cf {

namespace {

bool isTokenCharacter(char byte) noexcept {
    constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    return isLetterOrDigit(byte) || kMarks.find(byte) != std::string_view::npos;
}

}  // namespace

bool isSendableHeaderValue(std::string_view value) noexcept {
    return std::none_of(value.begin(), value.end(), isControlCharacter);
}

bool isSendableHeader(std::string_view name, std::string_view value) noexcept {
    return !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter) && isSendableHeaderValue(value);
}

void RestHeaderList::clear() noexcept {
    m_lines.clear();
    m_lineStarts.clear();
    m_nodes.clear();
}

void RestHeaderList::addHeader(std::string_view name, std::string_view value) {
    const bool isBlank = value.find_first_not_of(' ') == std::string_view::npos;
    if (isBlank) {
        // For libcurl "Name;" is a header with an empty value, and "Name:" suppresses the header.
        addLine(name, ";", "");
    } else {
        addLine(name, ": ", value);
    }
}

void RestHeaderList::suppressHeader(std::string_view name) {
    addLine(name, ":", "");
}

void RestHeaderList::addLine(std::string_view name, std::string_view separator, std::string_view value) {
    m_lineStarts.push_back(m_lines.size());
    m_lines.append(name).append(separator).append(value) += '\0';
}

curl_slist* RestHeaderList::obtainList() {
    // Linked only now, because adding lines may have moved the text.
    m_nodes.resize(m_lineStarts.size());
    for (std::size_t index = 0; index < m_nodes.size(); ++index) {
        m_nodes[index].data = m_lines.data() + m_lineStarts[index];
        m_nodes[index].next = index + 1 < m_nodes.size() ? &m_nodes[index + 1] : nullptr;
    }
    return m_nodes.empty() ? nullptr : m_nodes.data();
}

}  // namespace cf
