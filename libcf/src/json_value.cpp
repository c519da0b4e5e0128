#include <cstring>

#include "cf/json.h"
#include "json_access.h"
#include "numbers.h"

using Access = COJsonAccess;
using Type = COJsonValue::Type;

namespace {

template <typename Word>
Word loadWord(const char* bytes) noexcept {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// Whether the first and the last bytes of two texts, as many as a Word has, are the same: all there is in texts of
/// up to twice that size.
template <typename Word>
bool hasSameEnds(std::string_view left, std::string_view right) noexcept {
    const std::size_t last = left.size() - sizeof(Word);
    return loadWord<Word>(left.data()) == loadWord<Word>(right.data()) &&
           loadWord<Word>(left.data() + last) == loadWord<Word>(right.data() + last);
}

// Keys are short, and a call of memcmp costs several times what comparing them does.
bool isSameKey(std::string_view left, std::string_view right) noexcept {
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

/// Writes down the values of the keys that an object has, in one walk.
class MemberSearch {
public:
    MemberSearch(const std::string_view* keys, COJsonValue* values, std::size_t count) noexcept
        : m_keys(keys), m_values(values), m_count(count), m_missing(count) {}

    [[nodiscard]] bool isComplete() const noexcept { return m_missing == 0; }

    /// Takes a member of the object; members must come in their order.
    void addMember(std::string_view key, TapePlace value) noexcept {
        // Members mostly stand in the order of the keys asked for: the one behind the last found is tried first.
        for (std::size_t tried = 0; tried < m_count; ++tried) {
            const std::size_t index = m_next;
            m_next = m_next + 1 == m_count ? 0 : m_next + 1;
            if (isSameKey(key, m_keys[index])) {
                setValue(m_values[index], value);
                return;
            }
        }
    }

private:
    void setValue(COJsonValue& target, TapePlace value) noexcept {
        if (!Access::isParsed(target)) {
            target = Access::make<COJsonValue>(value);
            --m_missing;
        }
    }

    const std::string_view* m_keys;
    COJsonValue* m_values;
    std::size_t m_count;
    std::size_t m_missing;
    std::size_t m_next = 0;
};

}  // namespace

Type COJsonValue::obtainType() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainType();
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->type : Type::Undefined;
}

std::string_view COJsonValue::obtainString() const noexcept {
    if (Access::isParsed(*this)) {
        const TapePlace place = Access::obtainPlace(*this);
        return place.isString() ? place.obtainString() : std::string_view();
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr && node->type == Type::String ? std::string_view(node->text) : std::string_view();
}

double COJsonValue::obtainDouble() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainDouble();
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->number : 0.0;
}

std::int64_t COJsonValue::obtainInteger() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainInteger();
    }
    return truncateToInteger(obtainDouble());
}

bool COJsonValue::obtainBoolean() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::obtainPlace(*this).obtainBoolean();
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr && node->boolean;
}

COJsonValue COJsonValue::obtainMember(std::string_view key) const noexcept {
    COJsonValue value;
    findMembers(&key, &value, 1);
    return value;
}

void COJsonValue::findMembers(const std::string_view* keys, COJsonValue* values, std::size_t count) const noexcept {
    if (Access::isParsed(*this)) {
        const TapePlace object = Access::obtainPlace(*this);
        if (!object.isObject()) {
            return;
        }
        MemberSearch search(keys, values, count);
        const TapePlace end = object.obtainEnd();
        for (TapePlace key = object.obtainFirst(); key != end && !search.isComplete();) {
            const TapePlace value = key.obtainValueOfKey();
            search.addMember(key.obtainString(), value);
            key = value.obtainNext();
        }
    } else if (JsonNode* node = Access::obtainNode(*this)) {
        for (std::size_t index = 0; index < count; ++index) {
            values[index] = Access::make<COJsonValue>(node->findMember(keys[index]));
        }
    }
}

std::size_t COJsonValue::obtainSize() const noexcept {
    if (Access::isParsed(*this)) {
        const TapePlace place = Access::obtainPlace(*this);
        return place.isArray() || place.isObject() ? place.countChildren() : 0;
    }
    const JsonNode* node = Access::obtainNode(*this);
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
    } else if (const JsonNode* node = Access::obtainNode(*this)) {
        writeTree(*node, writer);
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
        const TapePlace key = Access::obtainPlace(*this);
        return {key.obtainString(), Access::make<COJsonValue>(key.obtainValueOfKey())};
    }
    const JsonNode* node = Access::obtainNode(*this);
    return {node->key, Access::make<COJsonValue>(node)};
}

COJsonMembers::Iterator& COJsonMembers::Iterator::operator++() noexcept {
    *this = Access::isParsed(*this) ? Access::make<Iterator>(Access::obtainPlace(*this).obtainValueOfKey().obtainNext())
                                    : Access::make<Iterator>(Access::obtainNode(*this)->next);
    return *this;
}
