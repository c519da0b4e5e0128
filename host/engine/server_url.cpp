#include "engine/server_url.h"

#include <algorithm>

namespace host {
namespace {

int readHexDigit(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    const char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string decodePercents(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCode =
            text[i] == '%' && i + 2 < text.size() && readHexDigit(text[i + 1]) >= 0 && readHexDigit(text[i + 2]) >= 0;
        if (isCode) {
            decoded += static_cast<char>(readHexDigit(text[i + 1]) * 16 + readHexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// Removes and returns the text before the separator; the whole text if there is none.
std::string_view takeBefore(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return taken;
}

void parseHostAndPort(std::string_view authority, ServerUrl& url) {
    if (authority.starts_with('[')) {
        authority.remove_prefix(1);
        url.host = takeBefore(authority, ']');
        authority.remove_prefix(authority.starts_with(':') ? 1 : 0);
        url.port = authority;
        return;
    }
    url.host = decodePercents(takeBefore(authority, ':'));
    url.port = authority;
}

}  // namespace

ServerUrl parseServerUrl(std::string_view text) {
    ServerUrl url;
    const std::size_t scheme = text.find("://");
    text.remove_prefix(scheme == std::string_view::npos ? 0 : scheme + 3);
    std::string_view address = takeBefore(text, '?');
    const std::string_view parameters = text;
    std::string_view authority = takeBefore(address, '/');
    url.name = decodePercents(address);
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        std::string_view user = authority.substr(0, at);
        authority.remove_prefix(at + 1);
        url.hasPassword = user.find(':') != std::string_view::npos;
        url.user = decodePercents(takeBefore(user, ':'));
    }
    parseHostAndPort(authority, url);
    for (std::string_view rest = parameters; !rest.empty();) {
        std::string_view value = takeBefore(rest, '&');
        const std::string key = decodePercents(takeBefore(value, '='));
        url.hasPassword = url.hasPassword || key == "password";
        url.parameters.insert_or_assign(key, decodePercents(value));
    }
    return url;
}

std::string describeServerUrl(const std::string& text) {
    const ServerUrl url = parseServerUrl(text);
    return text.substr(0, text.find("://")) + "://" + (url.user.empty() ? "" : url.user + "@") + url.host +
           (url.port.empty() ? "" : ":" + url.port) + "/" + url.name;
}

}  // namespace host
