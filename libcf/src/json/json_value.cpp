#include <cstring>

#include "cf/json.h"
#include "json/json_access.h"
#include "text/numbers.h"

using Access = COJsonAccess;
using Type = COJsonValue::Type;

namespace {

template <typename Word>
Word loadWord(const char* bytes) noexcept {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// Whether two texts of equal size have the same first and last sizeof(Word) bytes. For sizes from sizeof(Word) to
/// twice that, these are all bytes.
template <typename Word>
bool hasSameEnds(std::string_view left, std::string_view right) noexcept {
    const std::size_t last = left.size() - sizeof(Word);
    return loadWord<Word>(left.data()) == loadWord<Word>(right.data()) &&
           loadWord<Word>(left.data() + last) == loadWord<Word>(right.data() + last);
}

// Keys are short: a call of memcmp costs several times as much as the comparison itself.
[[gnu::always_inline]] inline bool isSameKey(std::string_view left, std::string_view right) noexcept {
    const std::size_t size = left.size();
    if (size != right.size()) {
        return false;
    }
    if (size >= 4 && size <= 8) {
        return hasSameEnds<std::uint32_t>(left, right);
    }
    if (size >= 8 && size <= 16) {
        return hasSameEnds<std::uint64_t>(left, right);
    }
    return left == right;
}

/// The keys to find in an object, and where to store their values.
struct MemberSearch {
    const std::string_view* keys;
    COJsonValue* values;
    std::size_t count;
};

/// Searches from `member` to the end of the object, until `missing` more values are found. If a key occurs twice, its
/// first member counts.
[[gnu::noinline]] void findInAnyOrder(const MemberSearch& search, std::size_t missing, cf::TapePlace member,
                                      cf::TapePlace end) noexcept {
    for (; member != end && missing != 0; member = member.obtainValueOfKey().obtainNext()) {
        const std::string_view key = member.obtainString();
        for (std::size_t index = 0; index < search.count; ++index) {
            if (isSameKey(key, search.keys[index]) && !Access::isParsed(search.values[index])) {
                search.values[index] = Access::make<COJsonValue>(member.obtainValueOfKey());
                --missing;
            }
        }
    }
}

/// Fast search for members in the order of the keys: stops after the last key, and continues with findInAnyOrder() at
/// the first member that differs.
void findInOrder(const MemberSearch& search, cf::TapePlace object) noexcept {
    const cf::TapePlace end = object.obtainEnd();
    cf::TapePlace member = object.obtainFirst();
    for (std::size_t index = 0; index < search.count; ++index) {
        if (member == end) {
            return;
        }
        if (!isSameKey(member.obtainString(), search.keys[index])) {
            return findInAnyOrder(search, search.count - index, member, end);
        }
        search.values[index] = Access::make<COJsonValue>(member.obtainValueOfKey());
        member = member.obtainValueOfKey().obtainNext();
    }
}

COJsonValue findMember(cf::TapePlace object, std::string_view key) noexcept {
    const cf::TapePlace end = object.obtainEnd();
    for (cf::TapePlace member = object.obtainFirst(); member != end; member = member.obtainValueOfKey().obtainNext()) {
        if (isSameKey(member.obtainString(), key)) {
            return Access::make<COJsonValue>(member.obtainValueOfKey());
        }
    }
    return {};
}

}  // namespace

Type COJsonValue::obtainType() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainType();
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->type : Type::Undefined;
}

std::string_view COJsonValue::obtainString() const noexcept {
    if (Access::isParsed(*this)) {
        const cf::TapePlace place = Access::obtainPlace(*this);
        return place.isString() ? place.obtainString() : std::string_view();
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr && node->type == Type::String ? std::string_view(node->text) : std::string_view();
}

double COJsonValue::obtainDouble() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainDouble();
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->number : 0.0;
}

std::int64_t COJsonValue::obtainInteger() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainInteger();
    }
    return cf::truncateToInteger(obtainDouble());
}

bool COJsonValue::obtainBoolean() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainBoolean();
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr && node->boolean;
}

COJsonValue COJsonValue::obtainMember(std::string_view key) const noexcept {
    if (Access::isParsed(*this)) {
        const cf::TapePlace object = Access::obtainPlace(*this);
        return object.isObject() ? findMember(object, key) : COJsonValue();
    }
    cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? Access::make<COJsonValue>(node->findMember(key)) : COJsonValue();
}

void COJsonValue::findMembers(const std::string_view* keys, COJsonValue* values, std::size_t count) const noexcept {
    if (Access::isParsed(*this)) {
        const cf::TapePlace object = Access::obtainPlace(*this);
        if (object.isObject()) {
            findInOrder({keys, values, count}, object);
        }
        return;
    }
    for (std::size_t index = 0; index < count; ++index) {
        values[index] = obtainMember(keys[index]);
    }
}

std::size_t COJsonValue::obtainSize() const noexcept {
    if (Access::isParsed(*this)) {
        const cf::TapePlace place = Access::obtainPlace(*this);
        return place.isArray() || place.isObject() ? place.countChildren() : 0;
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->childCount : 0;
}

COJsonItems COJsonValue::obtainItems() const noexcept {
    return Access::makeRange<COJsonItems>(*this, Type::Array);
}

COJsonMembers COJsonValue::obtainMembers() const noexcept {
    return Access::makeRange<COJsonMembers>(*this, Type::Object);
}

std::vector<std::string> COJsonValue::obtainJsonKeys() const {
    std::vector<std::string> keys;
    if (isObject()) {
        keys.reserve(obtainSize());
        for (const COJsonMember member : obtainMembers()) {
            keys.emplace_back(member.key);
        }
    }
    return keys;
}

std::string COJsonValue::obtainJsonString() const {
    std::string text;
    if (getIsValidJson()) {
        COJsonWriter writer(text);
        writeJson(writer);
        writer.finish();
    }
    return text;
}

void COJsonValue::writeJson(COJsonWriter& writer) const {
    if (Access::isParsed(*this)) {
        Access::obtainPlace(*this).writeJson(writer);
    } else if (const cf::JsonNode* node = Access::obtainNode(*this)) {
        cf::writeTree(*node, writer);
    } else {
        writer.writeNull();
    }
}

COJsonItems::Iterator& COJsonItems::Iterator::operator++() noexcept {
    *this = Access::isParsed(*this) ? Access::make<Iterator>(Access::obtainPlace(*this).obtainNext())
                                    : Access::make<Iterator>(Access::obtainNode(*this)->next);
    return *this;
}

COJsonMember COJsonMembers::Iterator::operator*() const noexcept {
    if (Access::isParsed(*this)) {
        const cf::TapePlace key = Access::obtainPlace(*this);
        return {key.obtainString(), Access::make<COJsonValue>(key.obtainValueOfKey())};
    }
    const cf::JsonNode* node = Access::obtainNode(*this);
    return {node->key, Access::make<COJsonValue>(node)};
}

COJsonMembers::Iterator& COJsonMembers::Iterator::operator++() noexcept {
    *this = Access::isParsed(*this) ? Access::make<Iterator>(Access::obtainPlace(*this).obtainValueOfKey().obtainNext())
                                    : Access::make<Iterator>(Access::obtainNode(*this)->next);
    return *this;
}
