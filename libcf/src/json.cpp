#include "cf/json.h"

#include <bit>
#include <cmath>
#include <type_traits>

#include "json_reader.h"
#include "json_tree.h"

using simdjson::dom::array;
using simdjson::dom::element;
using simdjson::dom::element_type;
using simdjson::dom::object;
using Type = COJsonValue::Type;

/// What a document owns: the engine's document, or a built tree.
struct COJson::Document {
    simdjson::dom::document parsed;
    JsonTree built;
    COJsonValue root;
};

/// Turns handles and iterators into what they stand for and back. A handle into a parsed document has the bytes of
/// the engine's element; one into a built tree has a null first word, which no element has, and the node's address.
struct COJsonAccess {
    static_assert(sizeof(COJsonValue) == sizeof(element) && std::is_trivially_copyable_v<element>);
    static_assert(sizeof(COJsonItems::Iterator) == sizeof(array::iterator) &&
                  std::is_trivially_copyable_v<array::iterator>);
    static_assert(sizeof(COJsonMembers::Iterator) == sizeof(object::iterator) &&
                  std::is_trivially_copyable_v<object::iterator>);

    template <typename Handle>
    static bool isParsed(const Handle& handle) noexcept {
        return handle.m_document != nullptr;
    }

    template <typename Handle>
    static JsonNode* obtainNode(const Handle& handle) noexcept {
        return isParsed(handle) ? nullptr : reinterpret_cast<JsonNode*>(handle.m_place);
    }

    template <typename Handle>
    static Handle makeBuilt(const JsonNode* node) noexcept {
        Handle handle;
        handle.m_place = reinterpret_cast<std::uintptr_t>(node);
        return handle;
    }

    static element obtainElement(const COJsonValue& value) noexcept { return std::bit_cast<element>(value); }
    static COJsonValue makeValue(const element& parsed) noexcept { return std::bit_cast<COJsonValue>(parsed); }
    static COJsonValue makeValue(const JsonNode* node) noexcept { return makeBuilt<COJsonValue>(node); }

    template <typename Range, typename Container>
    static Range makeRange(const Container& container) noexcept {
        Range range;
        range.m_begin = std::bit_cast<typename Range::Iterator>(container.begin());
        range.m_end = std::bit_cast<typename Range::Iterator>(container.end());
        return range;
    }

    template <typename Range>
    static Range makeBuiltRange(const JsonNode* container) noexcept {
        Range range;
        range.m_begin = makeBuilt<typename Range::Iterator>(container->firstChild);
        return range;
    }

    static void writeUnsigned(COJsonWriter& writer, std::uint64_t number) { writer.writeUnsigned(number); }
};

using Access = COJsonAccess;

namespace {

Type obtainElementType(const element& parsed) noexcept {
    switch (parsed.type()) {
        case element_type::OBJECT:
            return Type::Object;
        case element_type::ARRAY:
            return Type::Array;
        case element_type::STRING:
            return Type::String;
        case element_type::BOOL:
            return Type::Boolean;
        case element_type::NULL_VALUE:
            return Type::Null;
        default:
            return Type::Number;
    }
}

std::int64_t truncate(double number) noexcept {
    constexpr double limit = 9223372036854775808.0;  // 2^63
    return number >= -limit && number < limit ? static_cast<std::int64_t>(number) : 0;
}

// An array or object of 2^24 - 1 or more values has lost count of them.
template <typename Container>
std::size_t countValues(const Container& container) noexcept {
    const std::size_t count = container.size();
    if (count < 0xFFFFFF) {
        return count;
    }
    std::size_t walked = 0;
    for (auto place = container.begin(); place != container.end(); ++place) {
        ++walked;
    }
    return walked;
}

void writeNumber(const element& number, COJsonWriter& writer) {
    switch (number.type()) {
        case element_type::INT64:
            return writer.writeInteger(number.get_int64().value_unsafe());
        case element_type::UINT64:
            return Access::writeUnsigned(writer, number.get_uint64().value_unsafe());
        default:
            return writer.writeDouble(number.get_double().value_unsafe());
    }
}

void writeParsed(const element& value, COJsonWriter& writer);

void writeParsedArray(const array& items, COJsonWriter& writer) {
    writer.beginArray();
    for (const element item : items) {
        writeParsed(item, writer);
    }
    writer.endArray();
}

void writeParsedObject(const object& members, COJsonWriter& writer) {
    writer.beginObject();
    for (const auto member : members) {
        writer.writeKey(member.key);
        writeParsed(member.value, writer);
    }
    writer.endObject();
}

// Recursive: a parsed document has at most 512 levels.
void writeParsed(const element& value, COJsonWriter& writer) {
    switch (value.type()) {
        case element_type::OBJECT:
            return writeParsedObject(value.get_object().value_unsafe(), writer);
        case element_type::ARRAY:
            return writeParsedArray(value.get_array().value_unsafe(), writer);
        case element_type::STRING:
            return writer.writeString(value.get_string().value_unsafe());
        case element_type::BOOL:
            return writer.writeBoolean(value.get_bool().value_unsafe());
        case element_type::NULL_VALUE:
            return writer.writeNull();
        default:
            return writeNumber(value, writer);
    }
}

}  // namespace

ICOJsonValue::~ICOJsonValue() = default;

std::string ICOJsonValue::obtainJsonString() const {
    std::string text;
    COJsonWriter writer(text);
    writeJson(writer);
    writer.finish();
    return text;
}

Type COJsonValue::obtainType() const noexcept {
    if (Access::isParsed(*this)) {
        return obtainElementType(Access::obtainElement(*this));
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->type : Type::Undefined;
}

std::string_view COJsonValue::obtainString() const noexcept {
    if (Access::isParsed(*this)) {
        const element parsed = Access::obtainElement(*this);
        return parsed.is_string() ? parsed.get_string().value_unsafe() : std::string_view();
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? std::string_view(node->text) : std::string_view();
}

double COJsonValue::obtainDouble() const noexcept {
    if (Access::isParsed(*this)) {
        double number = 0.0;
        return Access::obtainElement(*this).get(number) == simdjson::SUCCESS ? number : 0.0;
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? node->number : 0.0;
}

std::int64_t COJsonValue::obtainInteger() const noexcept {
    if (!Access::isParsed(*this)) {
        return truncate(obtainDouble());
    }
    const element parsed = Access::obtainElement(*this);
    if (parsed.is_int64()) {
        return parsed.get_int64().value_unsafe();
    }
    return parsed.is_double() ? truncate(parsed.get_double().value_unsafe()) : 0;
}

bool COJsonValue::obtainBoolean() const noexcept {
    if (Access::isParsed(*this)) {
        bool value = false;
        return Access::obtainElement(*this).get(value) == simdjson::SUCCESS && value;
    }
    const JsonNode* node = Access::obtainNode(*this);
    return node != nullptr && node->boolean;
}

COJsonValue COJsonValue::obtainMember(std::string_view key) const noexcept {
    if (Access::isParsed(*this)) {
        object members;
        element member;
        if (Access::obtainElement(*this).get(members) != simdjson::SUCCESS ||
            members.at_key(key).get(member) != simdjson::SUCCESS) {
            return {};
        }
        return Access::makeValue(member);
    }
    JsonNode* node = Access::obtainNode(*this);
    return node != nullptr ? Access::makeValue(node->findMember(key)) : COJsonValue();
}

std::size_t COJsonValue::obtainSize() const noexcept {
    if (!Access::isParsed(*this)) {
        const JsonNode* node = Access::obtainNode(*this);
        return node != nullptr ? node->childCount : 0;
    }
    const element parsed = Access::obtainElement(*this);
    if (parsed.is_array()) {
        return countValues(parsed.get_array().value_unsafe());
    }
    return parsed.is_object() ? countValues(parsed.get_object().value_unsafe()) : 0;
}

COJsonItems COJsonValue::obtainItems() const noexcept {
    if (Access::isParsed(*this)) {
        array items;
        return Access::obtainElement(*this).get(items) == simdjson::SUCCESS ? Access::makeRange<COJsonItems>(items)
                                                                            : COJsonItems();
    }
    return isArray() ? Access::makeBuiltRange<COJsonItems>(Access::obtainNode(*this)) : COJsonItems();
}

COJsonMembers COJsonValue::obtainMembers() const noexcept {
    if (Access::isParsed(*this)) {
        object members;
        return Access::obtainElement(*this).get(members) == simdjson::SUCCESS
                   ? Access::makeRange<COJsonMembers>(members)
                   : COJsonMembers();
    }
    return isObject() ? Access::makeBuiltRange<COJsonMembers>(Access::obtainNode(*this)) : COJsonMembers();
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
        writeParsed(Access::obtainElement(*this), writer);
    } else if (const JsonNode* node = Access::obtainNode(*this)) {
        writeTree(*node, writer);
    } else {
        writer.writeNull();
    }
}

void COJsonValue::setString(std::string_view text) {
    if (JsonNode* node = Access::obtainNode(*this)) {
        std::string copy(text);  // `text` may be this value's own
        node->reset(Type::String);
        node->text = std::move(copy);
    }
}

void COJsonValue::setDouble(double number) {
    if (JsonNode* node = Access::obtainNode(*this)) {
        node->reset(std::isfinite(number) ? Type::Number : Type::Null);
        node->number = std::isfinite(number) ? number : 0.0;
    }
}

void COJsonValue::setBoolean(bool value) {
    if (JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Boolean);
        node->boolean = value;
    }
}

void COJsonValue::setNull() {
    if (JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Null);
    }
}

void COJsonValue::setArray() {
    if (JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Array);
    }
}

void COJsonValue::setObject() {
    if (JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Object);
    }
}

COJsonValue COJsonValue::addKeyValue(std::string_view key) {
    JsonNode* node = Access::obtainNode(*this);
    if (node == nullptr || node->type != Type::Object) {
        return {};
    }
    return Access::makeValue(&node->tree->addChild(*node, key));
}

COJsonValue COJsonValue::addItem() {
    JsonNode* node = Access::obtainNode(*this);
    if (node == nullptr || node->type != Type::Array) {
        return {};
    }
    return Access::makeValue(&node->tree->addChild(*node, {}));
}

COJsonValue COJsonItems::Iterator::operator*() const noexcept {
    if (Access::isParsed(*this)) {
        return Access::makeValue(*std::bit_cast<array::iterator>(*this));
    }
    return Access::makeValue(Access::obtainNode(*this));
}

COJsonItems::Iterator& COJsonItems::Iterator::operator++() noexcept {
    if (Access::isParsed(*this)) {
        auto place = std::bit_cast<array::iterator>(*this);
        *this = std::bit_cast<Iterator>(++place);
    } else {
        *this = Access::makeBuilt<Iterator>(Access::obtainNode(*this)->next);
    }
    return *this;
}

COJsonMember COJsonMembers::Iterator::operator*() const noexcept {
    if (Access::isParsed(*this)) {
        const auto place = std::bit_cast<object::iterator>(*this);
        return {place.key(), Access::makeValue(place.value())};
    }
    const JsonNode* node = Access::obtainNode(*this);
    return {node->key, Access::makeValue(node)};
}

COJsonMembers::Iterator& COJsonMembers::Iterator::operator++() noexcept {
    if (Access::isParsed(*this)) {
        auto place = std::bit_cast<object::iterator>(*this);
        *this = std::bit_cast<Iterator>(++place);
    } else {
        *this = Access::makeBuilt<Iterator>(Access::obtainNode(*this)->next);
    }
    return *this;
}

COJson::COJson() : m_document(std::make_unique<Document>()) {
    m_document->root = Access::makeValue(&m_document->built.addRoot());
    m_document->root.setObject();
}

COJson::COJson(std::string_view text) : m_document(std::make_unique<Document>()) {
    if (readJson(text, m_document->parsed)) {
        m_document->root = Access::makeValue(m_document->parsed.root());
    } else {
        m_document.reset();
    }
}

COJson::~COJson() = default;
COJson::COJson(COJson&& other) noexcept = default;
COJson& COJson::operator=(COJson&& other) noexcept = default;

bool COJson::getIsValidJson() const noexcept {
    return m_document != nullptr;
}

COJsonValue COJson::obtainRoot() const noexcept {
    return m_document != nullptr ? m_document->root : COJsonValue();
}

void COJson::writeJson(COJsonWriter& writer) const {
    obtainRoot().writeJson(writer);
}

namespace {

constexpr int maximumDepth = 512;

void setFromVariant(COJsonValue target, const CMVariant& value, int depth);

void setFromList(COJsonValue target, const CMVariantList& list, int depth) {
    target.setArray();
    for (const CMVariant& item : list) {
        setFromVariant(target.addItem(), item, depth);
    }
}

void setFromMap(COJsonValue target, const CMVariantMap& map, int depth) {
    target.setObject();
    for (const auto& [key, value] : map) {
        setFromVariant(target.addKeyValue(key), value, depth);
    }
}

// `depth` counts the levels around the target; an array or object too deep stays null.
void setFromVariant(COJsonValue target, const CMVariant& value, int depth) {
    switch (value.getValueType()) {
        case CMVariant::ValueType::String:
            return target.setString(value.stringValue());
        case CMVariant::ValueType::Double:
            return target.setDouble(value.doubleValue());
        case CMVariant::ValueType::List:
            return depth < maximumDepth ? setFromList(target, value.listValue(), depth + 1) : target.setNull();
        case CMVariant::ValueType::Map:
            return depth < maximumDepth ? setFromMap(target, value.mapValue(), depth + 1) : target.setNull();
        default:
            return target.setNull();
    }
}

}  // namespace

COJson cfCreateCOJsonFromCMVariant(const CMVariant& value) {
    COJson json;
    setFromVariant(json.obtainRoot(), value, 0);
    return json;
}
