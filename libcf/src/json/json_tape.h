#ifndef CF_SRC_JSON_TAPE_H
#define CF_SRC_JSON_TAPE_H

#include <simdjson.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cf/json.h"

namespace cf {

/// The maximum number of nested arrays and objects in a document.
inline constexpr std::size_t kMaximumDepth = 512;

/// A parsed text: a tape with all values in the order of the text, and a buffer with their strings.
struct ParsedDocument : simdjson::dom::document {
    /// Whether the text contains an integer beyond 64 bits; the tape holds it as the nearest double.
    bool hasHugeIntegers = false;
};

/// A value's place on the tape of a parsed document.
///
/// Reads the tape directly: simdjson's element classes check a type and return an error code at every step, which is
/// measurable in documents with a million values.
class TapePlace : private simdjson::internal::tape_ref {
public:
    using Type = COJsonValue::Type;

    explicit TapePlace(const ParsedDocument& document) noexcept : tape_ref(&document, 1) {}

    [[nodiscard]] Type obtainType() const noexcept;
    [[nodiscard]] bool isString() const noexcept { return tape_ref_type() == TapeType::STRING; }
    [[nodiscard]] bool isArray() const noexcept { return tape_ref_type() == TapeType::START_ARRAY; }
    [[nodiscard]] bool isObject() const noexcept { return tape_ref_type() == TapeType::START_OBJECT; }
    [[nodiscard]] std::string_view obtainString() const noexcept { return get_string_view(); }
    [[nodiscard]] bool obtainBoolean() const noexcept { return is_true(); }
    /// The number as a double; 0.0 for another type.
    [[nodiscard]] double obtainDouble() const noexcept;
    /// The number without its fraction; 0 if it does not fit into 64 bits (signed), and for another type.
    [[nodiscard]] std::int64_t obtainInteger() const noexcept;
    /// Writes this value with all its content.
    void writeJson(COJsonWriter& writer) const;

    // For an array or an object: go from obtainFirst() to obtainEnd() with obtainNext(). A member of an object is a
    // key, which is a string, followed by its value.

    [[nodiscard]] TapePlace obtainFirst() const noexcept { return {doc, json_index + 1}; }
    [[nodiscard]] TapePlace obtainEnd() const noexcept { return {doc, std::size_t{matching_brace_index()} - 1}; }
    [[nodiscard]] TapePlace obtainNext() const noexcept { return {doc, after_element()}; }
    [[nodiscard]] TapePlace obtainValueOfKey() const noexcept { return {doc, json_index + 1}; }
    /// The number of values in an array or members in an object.
    [[nodiscard]] std::size_t countChildren() const noexcept;

    [[nodiscard]] bool operator==(const TapePlace& other) const noexcept { return json_index == other.json_index; }

private:
    using TapeType = simdjson::internal::tape_type;

    TapePlace(const simdjson::dom::document* document, std::size_t index) noexcept : tape_ref(document, index) {}

    void writeItems(COJsonWriter& writer) const;
    void writeMembers(COJsonWriter& writer) const;
    void writeNumber(COJsonWriter& writer) const;
};

inline TapePlace::Type TapePlace::obtainType() const noexcept {
    switch (tape_ref_type()) {
        case TapeType::START_OBJECT:
            return Type::Object;
        case TapeType::START_ARRAY:
            return Type::Array;
        case TapeType::STRING:
            return Type::String;
        case TapeType::INT64:
        case TapeType::UINT64:
        case TapeType::DOUBLE:
            return Type::Number;
        case TapeType::TRUE_VALUE:
        case TapeType::FALSE_VALUE:
            return Type::Boolean;
        case TapeType::NULL_VALUE:
            return Type::Null;
        default:
            return Type::Undefined;
    }
}

}  // namespace cf

#endif
