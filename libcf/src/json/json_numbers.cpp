#include "json/json_numbers.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>

#include "text/characters.h"
#include "text/numbers.h"

namespace cf {

namespace {

/// A number token split into its parts, up to the first violation of JSON's grammar.
struct NumberParts {
    bool isNegative = false;
    std::string_view whole;
    std::string_view fraction;
    std::string_view exponent;
    bool isInteger = true;
    bool isWellFormed = false;
};

std::string_view takeDigits(std::string_view& rest) noexcept {
    const auto end = std::find_if_not(rest.begin(), rest.end(), isDigit);
    const auto digits = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
    rest.remove_prefix(digits.size());
    return digits;
}

bool takeCharacter(std::string_view& rest, std::string_view allowed) noexcept {
    if (rest.empty() || allowed.find(rest.front()) == std::string_view::npos) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

/// @return false for an exponent marker without digits
bool takeExponent(std::string_view& rest, NumberParts& parts) noexcept {
    if (!takeCharacter(rest, "eE")) {
        return true;
    }
    parts.isInteger = false;
    const std::string_view start = rest;
    takeCharacter(rest, "+-");
    const std::size_t signSize = start.size() - rest.size();
    const std::string_view digits = takeDigits(rest);
    parts.exponent = start.substr(0, signSize + digits.size());
    return !digits.empty();
}

NumberParts cutNumber(std::string_view token) noexcept {
    NumberParts parts;
    parts.isNegative = takeCharacter(token, "-");
    parts.whole = takeDigits(token);
    if (parts.whole.empty() || (parts.whole.size() > 1 && parts.whole.front() == '0')) {
        return parts;
    }
    if (takeCharacter(token, ".")) {
        parts.isInteger = false;
        parts.fraction = takeDigits(token);
        if (parts.fraction.empty()) {
            return parts;
        }
    }
    parts.isWellFormed = takeExponent(token, parts) && token.empty();
    return parts;
}

std::int64_t readExponent(std::string_view exponent) noexcept {
    constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / 2;
    const bool isNegative = exponent.starts_with('-');
    if (isNegative || exponent.starts_with('+')) {
        exponent.remove_prefix(1);
    }
    std::int64_t value = 0;
    const auto result = std::from_chars(exponent.data(), exponent.data() + exponent.size(), value);
    if (result.ec == std::errc::result_out_of_range || value > kLimit) {
        value = kLimit;
    }
    return isNegative ? -value : value;
}

/// Whether a number that no double can hold is too large, not too small.
bool isHuge(const NumberParts& parts) noexcept {
    std::int64_t magnitude = readExponent(parts.exponent);
    if (parts.whole != "0") {
        magnitude += static_cast<std::int64_t>(parts.whole.size());
    } else {
        const auto firstDigit = parts.fraction.find_first_not_of('0');
        magnitude -= static_cast<std::int64_t>(std::min(firstDigit, parts.fraction.size()));
    }
    return magnitude > 0;
}

bool isInteger64(std::string_view token) noexcept {
    const char* const end = token.data() + token.size();
    std::int64_t signedValue = 0;
    std::uint64_t unsignedValue = 0;
    return std::from_chars(token.data(), end, signedValue).ec == std::errc() ||
           std::from_chars(token.data(), end, unsignedValue).ec == std::errc();
}

void appendDouble(std::string& out, double number) {
    char buffer[kNumberTextSize];
    // The scientific form always has an exponent, so the engine reads a double and not an integer.
    const auto result = std::to_chars(buffer, buffer + kNumberTextSize, number, std::chars_format::scientific);
    out.append(buffer, result.ptr);
}

}  // namespace

std::size_t measureNumber(std::string_view text) noexcept {
    return std::min(text.find_first_not_of("0123456789+-.eE"), text.size());
}

NumberRepair appendRepairedNumber(std::string& out, std::string_view token) {
    const NumberParts parts = cutNumber(token);
    if (!parts.isWellFormed || (parts.isInteger && isInteger64(token))) {
        out += token;
        return NumberRepair::None;
    }
    double number = 0.0;
    const auto result = std::from_chars(token.data(), token.data() + token.size(), number);
    const bool isOutOfRange = result.ec == std::errc::result_out_of_range;
    if (!isOutOfRange && !parts.isInteger) {
        out += token;
        return NumberRepair::None;
    }
    if (isOutOfRange) {
        number = isHuge(parts) ? std::numeric_limits<double>::max() : 0.0;
        number = parts.isNegative ? -number : number;
    }
    appendDouble(out, number);
    return parts.isInteger ? NumberRepair::Integer : NumberRepair::Double;
}

}  // namespace cf
