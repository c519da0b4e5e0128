#include "terminal/secret_text.h"

#include <charconv>
#include <system_error>

namespace host {
namespace {

constexpr std::size_t kMinSecretLength = 4;
constexpr std::string_view kReplacement = "***";

std::string& holdSecret() {
    static std::string secret;
    return secret;
}

/// A match of one character of a secret.
struct CharacterMatch {
    std::size_t length = 0;     ///< matched bytes of the text; 0: no match
    bool isUnfinished = false;  ///< the text ends before this is certain
};

/// Matches a byte written as a prefix and hexadecimal digits: "%2F", "\u002f".
CharacterMatch matchHexadecimal(std::string_view text, std::string_view prefix, std::size_t digits, char wanted) {
    const std::size_t length = prefix.size() + digits;
    if (text.substr(0, prefix.size()) != prefix.substr(0, text.size())) {
        return {};
    }
    if (text.size() < length) {
        return {.isUnfinished = true};
    }
    unsigned value = 0;
    const char* end = text.data() + length;
    const auto [behind, error] = std::from_chars(text.data() + prefix.size(), end, value, 16);
    return {.length =
                error == std::errc() && behind == end && value == static_cast<unsigned char>(wanted) ? length : 0};
}

CharacterMatch matchCharacter(std::string_view text, char wanted) {
    if (text.empty()) {
        return {.isUnfinished = true};
    }
    CharacterMatch match;
    if (text.front() == '%') {
        match = matchHexadecimal(text, "%", 2, wanted);
    } else if (text.front() == '\\') {
        match = text.size() > 1 && text[1] == wanted ? CharacterMatch{.length = 2}
                                                     : matchHexadecimal(text, "\\u", 4, wanted);
    }
    return match.length == 0 && text.front() == wanted ? CharacterMatch{.length = 1} : match;
}

/// Matches the secret at the beginning of the text.
CharacterMatch matchSecret(std::string_view text, std::string_view secret) {
    std::size_t length = 0;
    for (const char wanted : secret) {
        const CharacterMatch match = matchCharacter(text.substr(length), wanted);
        if (match.length == 0) {
            return {.isUnfinished = match.isUnfinished};
        }
        length += match.length;
    }
    return {.length = length};
}

bool mayBegin(char character, std::string_view secret) {
    return character == secret.front() || character == '%' || character == '\\';
}

}  // namespace

std::string replaceSecret(std::string_view text, std::string_view secret) {
    std::string result;
    result.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size()) {
        std::size_t length = 0;
        if (!secret.empty() && mayBegin(text[position], secret)) {
            length = matchSecret(text.substr(position), secret).length;
        }
        if (length != 0) {
            result += kReplacement;
            position += length;
        } else {
            result += text[position++];
        }
    }
    return result;
}

std::size_t findUnfinishedSecret(std::string_view text, std::string_view secret) {
    std::size_t position = 0;
    while (!secret.empty() && position < text.size()) {
        const CharacterMatch match =
            mayBegin(text[position], secret) ? matchSecret(text.substr(position), secret) : CharacterMatch{};
        if (match.isUnfinished) {
            return position;
        }
        position += match.length != 0 ? match.length : 1;
    }
    return text.size();
}

void setHiddenSecret(std::string_view secret) {
    holdSecret() = secret.size() < kMinSecretLength ? std::string_view() : secret;
}

const std::string& obtainHiddenSecret() noexcept {
    return holdSecret();
}

}  // namespace host
