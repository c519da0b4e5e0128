#include "json/json_repair.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>

#include "json/json_numbers.h"
#include "text/characters.h"
#include "text/utf8.h"

namespace cf {

namespace {

constexpr std::size_t kUnicodeEscapeSize = 6;

/// The UTF-16 code unit of an escape "\\uXXXX" at the start of a text.
std::optional<unsigned> readUnicodeEscape(std::string_view text) noexcept {
    if (text.size() < kUnicodeEscapeSize || !text.starts_with("\\u")) {
        return std::nullopt;
    }
    const char* const end = text.data() + kUnicodeEscapeSize;
    unsigned unit = 0;
    const bool isHexadecimal = std::from_chars(text.data() + 2, end, unit, 16).ptr == end;
    return isHexadecimal ? std::optional(unit) : std::nullopt;
}

bool isHighSurrogate(unsigned unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(unsigned unit) noexcept {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// A part of a string: copied, or replaced by U+FFFD.
struct Part {
    std::size_t size;
    bool isReplaced;
};

Part measureEscape(std::string_view text) noexcept {
    const auto unit = readUnicodeEscape(text);
    if (!unit) {
        return {std::min<std::size_t>(2, text.size()), false};
    }
    if (isHighSurrogate(*unit)) {
        const auto next = readUnicodeEscape(text.substr(kUnicodeEscapeSize));
        const bool isPair = next && isLowSurrogate(*next);
        return {isPair ? 2 * kUnicodeEscapeSize : kUnicodeEscapeSize, !isPair};
    }
    return {kUnicodeEscapeSize, isLowSurrogate(*unit)};
}

bool isPlain(char byte) noexcept {
    return byte != '"' && byte != '\\' && static_cast<unsigned char>(byte) < 0x80;
}

/// @param text  not empty, within a string
Part measurePart(std::string_view text) noexcept {
    const auto plainEnd = std::find_if_not(text.begin(), text.end(), isPlain);
    if (plainEnd != text.begin()) {
        return {static_cast<std::size_t>(plainEnd - text.begin()), false};
    }
    if (text.front() == '\\') {
        return measureEscape(text);
    }
    const UTF8Sequence sequence = measureUTF8Sequence(text);
    return {sequence.size, !sequence.isWellFormed};
}

/// Moves the string token at the start of the text, including its quotes, to `out`.
void appendString(std::string& out, std::string_view& text) {
    out += '"';
    text.remove_prefix(1);
    while (!text.empty() && text.front() != '"') {
        const Part part = measurePart(text);
        out += part.isReplaced ? kReplacementCharacter : text.substr(0, part.size);
        text.remove_prefix(part.size);
    }
    if (!text.empty()) {
        out += '"';
        text.remove_prefix(1);
    }
}

}  // namespace

RepairedJson repairJson(std::string_view text) {
    RepairedJson repaired;
    repaired.text.reserve(text.size());
    while (!text.empty()) {
        if (text.front() == '"') {
            appendString(repaired.text, text);
        } else if (isDigit(text.front()) || text.front() == '-') {
            const std::size_t size = measureNumber(text);
            const NumberRepair repair = appendRepairedNumber(repaired.text, text.substr(0, size));
            repaired.hasHugeIntegers = repaired.hasHugeIntegers || repair == NumberRepair::Integer;
            text.remove_prefix(size);
        } else {
            repaired.text += text.front();
            text.remove_prefix(1);
        }
    }
    return repaired;
}

}  // namespace cf
