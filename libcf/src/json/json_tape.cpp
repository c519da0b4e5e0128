#include "json/json_tape.h"

#include "json/json_access.h"
#include "text/numbers.h"

namespace cf {

using Type = COJsonValue::Type;

double TapePlace::obtainDouble() const noexcept {
    switch (tape_ref_type()) {
        case TapeType::DOUBLE:
            return next_tape_value<double>();
        case TapeType::INT64:
            return static_cast<double>(next_tape_value<std::int64_t>());
        case TapeType::UINT64:
            return static_cast<double>(next_tape_value<std::uint64_t>());
        default:
            return 0.0;
    }
}

std::int64_t TapePlace::obtainInteger() const noexcept {
    if (is_int64()) {
        return next_tape_value<std::int64_t>();
    }
    if (!is_double()) {
        return 0;
    }
    const auto number = next_tape_value<double>();
    // An integer slightly below -2^63 became -2^63 when it was rounded to a double.
    const bool wasHuge = static_cast<const ParsedDocument*>(doc)->hasHugeIntegers && number == -0x1p63;
    return wasHuge ? 0 : truncateToInteger(number);
}

std::size_t TapePlace::countChildren() const noexcept {
    constexpr std::size_t kCountLimit = 0xFFFFFF;  // the tape's counter stops here
    const std::size_t count = scope_count();
    if (count < kCountLimit) {
        return count;
    }
    const bool hasKeys = isObject();
    std::size_t walked = 0;
    for (TapePlace place = obtainFirst(); place != obtainEnd(); ++walked) {
        place = (hasKeys ? place.obtainValueOfKey() : place).obtainNext();
    }
    return walked;
}

void TapePlace::writeItems(COJsonWriter& writer) const {
    writer.beginArray();
    const TapePlace end = obtainEnd();
    for (TapePlace item = obtainFirst(); item != end; item = item.obtainNext()) {
        item.writeJson(writer);
    }
    writer.endArray();
}

void TapePlace::writeMembers(COJsonWriter& writer) const {
    writer.beginObject();
    const TapePlace end = obtainEnd();
    for (TapePlace key = obtainFirst(); key != end; key = key.obtainValueOfKey().obtainNext()) {
        writer.writeKey(key.obtainString());
        key.obtainValueOfKey().writeJson(writer);
    }
    writer.endObject();
}

void TapePlace::writeNumber(COJsonWriter& writer) const {
    if (is_int64()) {
        writer.writeInteger(next_tape_value<std::int64_t>());
    } else if (is_uint64()) {
        COJsonAccess::writeUnsigned(writer, next_tape_value<std::uint64_t>());
    } else {
        writer.writeDouble(obtainDouble());
    }
}

// Recursive, which is safe: a parsed document has at most 512 levels.
void TapePlace::writeJson(COJsonWriter& writer) const {
    switch (obtainType()) {
        case Type::Object:
            return writeMembers(writer);
        case Type::Array:
            return writeItems(writer);
        case Type::String:
            return writer.writeString(obtainString());
        case Type::Number:
            return writeNumber(writer);
        case Type::Boolean:
            return writer.writeBoolean(obtainBoolean());
        default:
            return writer.writeNull();
    }
}

}  // namespace cf
