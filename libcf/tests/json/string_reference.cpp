#include "string_reference.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace {

struct ByteRange {
    unsigned lowest;
    unsigned highest;
};

/// The well-formed UTF-8 sequences, a row for each form: the ranges of its bytes.
const std::vector<std::vector<ByteRange>> kWellFormed{
    {{0x00, 0x7F}},
    {{0xC2, 0xDF}, {0x80, 0xBF}},
    {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}},
    {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}},
    {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
};

/// How many bytes at a place fit into the beginning of a row.
std::size_t countFittingBytes(const std::string& text, std::size_t place, const std::vector<ByteRange>& row) {
    std::size_t count = 0;
    while (count < row.size() && place + count < text.size()) {
        const unsigned byte = static_cast<unsigned char>(text[place + count]);
        if (byte < row[count].lowest || byte > row[count].highest) {
            break;
        }
        ++count;
    }
    return count;
}

/// What a string is made of: a raw character (well-formed or not), an escape of a UTF-16 code unit, or another escape.
struct Unit {
    enum class Kind { Character, NoCharacter, CodeUnit, OtherEscape } kind;
    std::string spelling;
    unsigned long code = 0;
};

Unit takeCharacter(const std::string& text, std::size_t place) {
    std::size_t longest = 1;
    for (const auto& row : kWellFormed) {
        const std::size_t count = countFittingBytes(text, place, row);
        if (count == row.size()) {
            return {Unit::Kind::Character, text.substr(place, count)};
        }
        longest = count > longest ? count : longest;
    }
    return {Unit::Kind::NoCharacter, text.substr(place, longest)};
}

Unit takeEscape(const std::string& text, std::size_t place) {
    const std::string digits = text.substr(place, 6).substr(place + 2 <= text.size() ? 2 : 0);
    if (text.compare(place, 2, "\\u") == 0 && digits.size() == 4 &&
        digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        return {Unit::Kind::CodeUnit, text.substr(place, 6), std::strtoul(digits.c_str(), nullptr, 16)};
    }
    return {Unit::Kind::OtherEscape, text.substr(place, 2)};
}

bool isBetween(const Unit& unit, unsigned long lowest, unsigned long highest) {
    return unit.kind == Unit::Kind::CodeUnit && unit.code >= lowest && unit.code <= highest;
}

std::string writeUnits(const std::vector<Unit>& units) {
    std::string text;
    for (std::size_t index = 0; index < units.size(); ++index) {
        const bool isHigh = isBetween(units[index], 0xD800, 0xDBFF);
        const bool isLow = isBetween(units[index], 0xDC00, 0xDFFF);
        if (isHigh && index + 1 < units.size() && isBetween(units[index + 1], 0xDC00, 0xDFFF)) {
            text += units[index].spelling + units[index + 1].spelling;
            ++index;
        } else if (isHigh || isLow || units[index].kind == Unit::Kind::NoCharacter) {
            text += "\\uFFFD";
        } else {
            text += units[index].spelling;
        }
    }
    return text;
}

}  // namespace

std::string rewriteStringsByReference(const std::string& json) {
    std::string text;
    std::vector<Unit> units;
    bool isInString = false;
    for (std::size_t place = 0; place < json.size();) {
        if (json[place] == '"') {
            text += writeUnits(units) + '"';
            units.clear();
            isInString = !isInString;
            ++place;
        } else if (isInString) {
            units.push_back(json[place] == '\\' ? takeEscape(json, place) : takeCharacter(json, place));
            place += units.back().spelling.size();
        } else {
            text += json[place++];
        }
    }
    return text + writeUnits(units);
}
