#include "json/json_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include "json/json_repair.h"

namespace cf {

namespace {

using simdjson::error_code;
using simdjson::dom::document;

constexpr std::size_t kMinimumCapacity = 32;

/// A text to parse, and the parser.
struct Source {
    std::string_view text;
    bool isPadded;
    simdjson::dom::parser& parser;
};

error_code parse(const Source& source, std::size_t depthLimit, document& target) {
    simdjson::dom::parser& parser = source.parser;
    error_code error = simdjson::SUCCESS;
    if (parser.capacity() < source.text.size() || parser.max_depth() != depthLimit || parser.capacity() == 0) {
        // A reused parser grows by half, so that not every longer text makes it grow.
        const std::size_t grown = parser.capacity() + parser.capacity() / 2;
        error = parser.allocate(std::max({source.text.size(), kMinimumCapacity, grown}), depthLimit);
    }
    if (error == simdjson::SUCCESS) {
        error = parser.parse_into_document(target, source.text.data(), source.text.size(), !source.isPadded).error();
    }
    if (error == simdjson::MEMALLOC) {
        throw std::bad_alloc();
    }
    return error;
}

/// The depth of the deepest array or object, including empty ones.
std::size_t measureDepth(const document& source) noexcept {
    constexpr unsigned kTypeShift = 56;
    const std::uint64_t* const tape = source.tape.get();
    const std::size_t end = tape[0] & simdjson::internal::JSON_VALUE_MASK;
    std::size_t depth = 0;
    std::size_t deepest = 0;
    for (std::size_t place = 1; place < end; ++place) {
        switch (static_cast<char>(tape[place] >> kTypeShift)) {
            case '[':
            case '{':
                deepest = std::max(deepest, ++depth);
                break;
            case ']':
            case '}':
                --depth;
                break;
            case 'l':
            case 'u':
            case 'd':
                ++place;  // the number itself is in the next word
                break;
            default:
                break;
        }
    }
    return deepest;
}

// At a limit of N simdjson accepts level N only if it is an empty array or object. So a text that fails at our limit is
// parsed with one level more, and its depth is measured.
error_code parseToDepth(const Source& source, document& target) {
    const error_code error = parse(source, kMaximumDepth, target);
    if (error != simdjson::DEPTH_ERROR) {
        return error;
    }
    const error_code deeperError = parse(source, kMaximumDepth + 1, target);
    const bool isTooDeep = deeperError == simdjson::SUCCESS && measureDepth(target) > kMaximumDepth;
    return isTooDeep ? simdjson::DEPTH_ERROR : deeperError;
}

/// Whether simdjson may have rejected a text that COJson accepts. It reports the same error for a number out of range
/// as for a malformed one, and the same error for ill-formed UTF-8 in strings and elsewhere.
bool isRepairable(error_code error) noexcept {
    return error == simdjson::NUMBER_ERROR || error == simdjson::STRING_ERROR || error == simdjson::UTF8_ERROR;
}

std::string_view skipByteOrderMark(std::string_view text) noexcept {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

}  // namespace

bool readJson(std::string_view text, bool isPadded, ParsedDocument& target, simdjson::dom::parser& parser) {
    target.hasHugeIntegers = false;
    const std::string_view json = skipByteOrderMark(text);
    if (json.empty() || json.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) {
        return false;
    }
    const error_code error = parseToDepth({json, isPadded, parser}, target);
    if (!isRepairable(error)) {
        return error == simdjson::SUCCESS;
    }
    const RepairedJson repaired = repairJson(json);
    target.hasHugeIntegers = repaired.hasHugeIntegers;
    return repaired.text.size() <= simdjson::SIMDJSON_MAXSIZE_BYTES &&
           parseToDepth({repaired.text, false, parser}, target) == simdjson::SUCCESS;
}

}  // namespace cf
