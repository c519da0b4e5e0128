#include "cf/variant.h"

#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>
#include <utility>

#include "text/characters.h"
#include "text/numbers.h"

namespace {

// std::from_chars rejects a leading plus sign, but people write one.
std::string_view skipPlusSign(std::string_view text) noexcept {
    const bool isSignOfNumber = text.size() > 1 && text[0] == '+' && (text[1] == '.' || cf::isDigit(text[1]));
    return isSignOfNumber ? text.substr(1) : text;
}

double readNumber(std::string_view text) noexcept {
    const std::string_view spelling = skipPlusSign(cf::trimBlanks(text));
    const char* const end = spelling.data() + spelling.size();
    double number = 0.0;
    const auto result = std::from_chars(spelling.data(), end, number);
    const bool isWhole = result.ec == std::errc() && result.ptr == end;
    return isWhole && std::isfinite(number) ? number : 0.0;
}

std::string obtainSpelling(double number) {
    char buffer[cf::kNumberTextSize];
    return std::string(buffer, cf::spellNumber(buffer, number));
}

}  // namespace

CMVariant::CMVariant() noexcept = default;
CMVariant::CMVariant(const char* text) : m_value(std::string(text != nullptr ? text : "")) {}
CMVariant::CMVariant(std::string text) noexcept : m_value(std::move(text)) {}
CMVariant::CMVariant(double number) noexcept : m_value(number) {}
CMVariant::CMVariant(CMVariantList list) noexcept : m_value(std::move(list)) {}
CMVariant::CMVariant(CMVariantMap map) noexcept : m_value(std::move(map)) {}

CMVariant::CMVariant(const CMVariant& other) = default;
CMVariant::CMVariant(CMVariant&& other) noexcept = default;

// Copies first: `other` may be an item of the list or map that this value holds.
CMVariant& CMVariant::operator=(const CMVariant& other) {
    auto copy = other.m_value;
    m_value = std::move(copy);
    return *this;
}

CMVariant& CMVariant::operator=(CMVariant&& other) noexcept = default;
CMVariant::~CMVariant() = default;

CMVariant::ValueType CMVariant::getValueType() const noexcept {
    switch (m_value.index()) {
        case 1:
            return ValueType::String;
        case 2:
            return ValueType::Double;
        case 3:
            return ValueType::List;
        case 4:
            return ValueType::Map;
        default:
            return ValueType::Null;
    }
}

std::string CMVariant::stringValue() const {
    if (const auto* text = std::get_if<std::string>(&m_value)) {
        return *text;
    }
    if (const auto* number = std::get_if<double>(&m_value)) {
        return obtainSpelling(*number);
    }
    return {};
}

double CMVariant::doubleValue() const noexcept {
    if (const auto* number = std::get_if<double>(&m_value)) {
        return *number;
    }
    if (const auto* text = std::get_if<std::string>(&m_value)) {
        return readNumber(*text);
    }
    return 0.0;
}

const CMVariantList& CMVariant::listValue() const noexcept {
    static const CMVariantList empty;
    const auto* list = std::get_if<CMVariantList>(&m_value);
    return list != nullptr ? *list : empty;
}

const CMVariantMap& CMVariant::mapValue() const noexcept {
    static const CMVariantMap empty;
    const auto* map = std::get_if<CMVariantMap>(&m_value);
    return map != nullptr ? *map : empty;
}
