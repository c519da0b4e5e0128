#include "rest/rest_url.h"

#include <algorithm>
#include <cstddef>

#include "text/characters.h"

namespace cf {

namespace {

constexpr std::string_view kMask = "***";

void appendHexByte(std::string& target, char byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    target += '%';
    target += kDigits[value >> 4U];
    target += kDigits[value & 0x0FU];
}

bool isUnreserved(char byte) noexcept {
    return isLetterOrDigit(byte) || byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

void appendEncoded(std::string& target, std::string_view text) {
    for (const char byte : text) {
        if (isUnreserved(byte)) {
            target += byte;
        } else {
            appendHexByte(target, byte);
        }
    }
}

/// The parts of a URL between its delimiters. Missing parts are empty.
struct URLParts {
    std::string_view scheme;    ///< before "://"
    bool hasScheme = false;     ///< whether there is a "://"
    std::string_view userInfo;  ///< before the last "@" of the authority
    bool hasUserInfo = false;   ///< whether there is such an "@"
    std::string_view hostPort;  ///< the rest of the authority
    std::string_view path;      ///< from its first "/"
    std::string_view query;     ///< after "?"
    bool hasQuery = false;      ///< whether there is a "?"
    std::string_view fragment;  ///< after "#"
    bool hasFragment = false;   ///< whether there is a "#"
};

/// Splits `text` at the first `delimiter`: `behind` gets what follows it, `text` keeps what precedes it.
bool cutBehind(std::string_view& text, char delimiter, std::string_view& behind) noexcept {
    const std::size_t place = text.find(delimiter);
    if (place == std::string_view::npos) {
        return false;
    }
    behind = text.substr(place + 1);
    text = text.substr(0, place);
    return true;
}

URLParts splitURL(std::string_view url) noexcept {
    URLParts parts;
    parts.hasFragment = cutBehind(url, '#', parts.fragment);
    parts.hasQuery = cutBehind(url, '?', parts.query);
    if (const std::size_t place = url.find("://"); place != std::string_view::npos) {
        parts.hasScheme = true;
        parts.scheme = url.substr(0, place);
        url.remove_prefix(place + 3);
    }
    const std::size_t pathStart = std::min(url.find('/'), url.size());
    parts.path = url.substr(pathStart);
    parts.hostPort = url.substr(0, pathStart);
    if (const std::size_t place = parts.hostPort.rfind('@'); place != std::string_view::npos) {
        parts.hasUserInfo = true;
        parts.userInfo = parts.hostPort.substr(0, place);
        parts.hostPort.remove_prefix(place + 1);
    }
    return parts;
}

struct HostAndPort {
    std::string_view host;  ///< an IPv6 address with its brackets
    std::string_view port;  ///< empty: none
};

HostAndPort splitHostPort(std::string_view hostPort) noexcept {
    const std::size_t bracket = hostPort.rfind(']');
    const std::size_t searchStart = bracket == std::string_view::npos ? 0 : bracket;
    const std::size_t colon = hostPort.find(':', searchStart);
    return {hostPort.substr(0, colon), colon == std::string_view::npos ? "" : hostPort.substr(colon + 1)};
}

/// Whether this is a host (possibly a bracketed address), alone or with a decimal port.
bool isSoundHostPort(std::string_view hostPort) noexcept {
    const auto [host, port] = splitHostPort(hostPort);
    return !host.empty() && port.size() <= 5 && std::all_of(port.begin(), port.end(), isDigit);
}

/// Whether an entry "name" or "name:port" matches the server of a URL.
bool isServerNamed(const HostAndPort& server, std::string_view entry) noexcept {
    const auto [host, port] = splitHostPort(entry);
    const bool isPortNamed = host.size() < entry.size();
    return !host.empty() && isEqualIgnoringCase(server.host, host) && (!isPortNamed || server.port == port);
}

/// The query with each value masked. A part without "=" is masked whole: it may be a bare token.
void appendMaskedQuery(std::string& target, std::string_view query) {
    while (true) {
        std::string_view rest;
        const bool hasMore = cutBehind(query, '&', rest);
        std::string_view value;
        if (cutBehind(query, '=', value)) {
            target += query;
            target += '=';
            target += kMask;
        } else if (!query.empty()) {
            target += kMask;
        }
        if (!hasMore) {
            return;
        }
        target += '&';
        query = rest;
    }
}

std::string encodeControlCharacters(std::string_view text) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char byte : text) {
        if (isControlCharacter(byte)) {
            appendHexByte(encoded, byte);
        } else {
            encoded += byte;
        }
    }
    return encoded;
}

}  // namespace

std::string buildRequestURL(const std::string& url, const CMRestParams& queryParams) {
    if (queryParams.empty()) {
        return url;
    }
    const std::size_t fragmentStart = std::min(url.find('#'), url.size());
    std::string built = url.substr(0, fragmentStart);
    bool hasQuery = built.find('?') != std::string::npos;
    for (const auto& [name, value] : queryParams) {
        built += hasQuery ? '&' : '?';
        hasQuery = true;
        appendEncoded(built, name);
        built += '=';
        appendEncoded(built, value);
    }
    return built.append(url, fragmentStart);
}

void usePlainHTTP(std::string& url, const std::vector<std::string>& hosts) {
    if (hosts.empty() || !isTLSURL(url)) {
        return;
    }
    const HostAndPort server = splitHostPort(splitURL(url).hostPort);
    if (std::ranges::any_of(hosts, [&](const std::string& host) { return isServerNamed(server, host); })) {
        url.replace(0, url.find(':'), "http");
    }
}

CMRestResult checkURL(std::string_view url) noexcept {
    const bool hasBadByte =
        std::any_of(url.begin(), url.end(), [](char byte) { return byte == ' ' || isControlCharacter(byte); });
    const URLParts parts = splitURL(url);
    const bool isKnownScheme = isEqualIgnoringCase(parts.scheme, "http") || isEqualIgnoringCase(parts.scheme, "https");
    if (hasBadByte || !isKnownScheme || !isSoundHostPort(parts.hostPort)) {
        return CMRestResult::InvalidURL;
    }
    if (parts.hasUserInfo) {
        // libcurl would send it in place of the session's credential.
        return CMRestResult::UserInfoInURL;
    }
    // libcurl converts such a name only if the process's locale allows it.
    const bool isASCII = std::ranges::all_of(parts.hostPort, [](char byte) { return (byte & 0x80) == 0; });
    return isASCII ? CMRestResult::Success : CMRestResult::NonASCIIHost;
}

bool isTLSURL(std::string_view url) noexcept {
    return isEqualIgnoringCase(url.substr(0, std::string_view("https://").size()), "https://");
}

std::string redactURL(std::string_view url) {
    const URLParts parts = splitURL(url);
    std::string shown(parts.scheme);
    shown += parts.hasScheme ? "://" : "";
    if (!isSoundHostPort(parts.hostPort)) {
        return encodeControlCharacters(shown.append(kMask));
    }
    if (parts.hasUserInfo) {
        shown.append(kMask) += '@';
    }
    shown.append(parts.hostPort).append(parts.path);
    if (parts.hasQuery) {
        shown += '?';
        appendMaskedQuery(shown, parts.query);
    }
    if (parts.hasFragment) {
        shown.append("#").append(parts.fragment.empty() ? "" : kMask);
    }
    return encodeControlCharacters(shown);
}

}  // namespace cf
