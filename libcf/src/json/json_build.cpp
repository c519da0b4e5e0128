#include <cmath>
#include <string>
#include <utility>

#include "cf/json.h"
#include "json/json_access.h"

using Access = COJsonAccess;
using Type = COJsonValue::Type;

void COJsonValue::setString(std::string_view text) {
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        std::string copy(text);  // first, since `text` may be this value's own
        node->reset(Type::String);
        node->text = std::move(copy);
    }
}

void COJsonValue::setDouble(double number) {
    if (!std::isfinite(number)) {
        return setNull();
    }
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Number);
        node->number = number;
    }
}

void COJsonValue::setBoolean(bool value) {
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Boolean);
        node->boolean = value;
    }
}

void COJsonValue::setNull() {
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Null);
    }
}

void COJsonValue::setArray() {
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Array);
    }
}

void COJsonValue::setObject() {
    if (cf::JsonNode* node = Access::obtainNode(*this)) {
        node->reset(Type::Object);
    }
}

COJsonValue COJsonValue::addKeyValue(std::string_view key) {
    cf::JsonNode* node = Access::obtainNode(*this);
    if (node == nullptr || node->type != Type::Object) {
        return {};
    }
    return Access::make<COJsonValue>(&node->tree->addChild(*node, key));
}

COJsonValue COJsonValue::addItem() {
    cf::JsonNode* node = Access::obtainNode(*this);
    if (node == nullptr || node->type != Type::Array) {
        return {};
    }
    return Access::make<COJsonValue>(&node->tree->addChild(*node, {}));
}

namespace {

void setFromVariant(COJsonValue target, const CMVariant& value, std::size_t level);

void setFromList(COJsonValue target, const CMVariantList& list, std::size_t level) {
    target.setArray();
    for (const CMVariant& item : list) {
        setFromVariant(target.addItem(), item, level);
    }
}

void setFromMap(COJsonValue target, const CMVariantMap& map, std::size_t level) {
    target.setObject();
    for (const auto& [key, value] : map) {
        setFromVariant(target.addKeyValue(key), value, level);
    }
}

/// Sets a target that is null. An array or object that is nested too deeply stays null.
/// @param level  the number of arrays and objects around the target
void setFromVariant(COJsonValue target, const CMVariant& value, std::size_t level) {
    switch (value.getValueType()) {
        case CMVariant::ValueType::String:
            return target.setString(value.stringValue());
        case CMVariant::ValueType::Double:
            return target.setDouble(value.doubleValue());
        case CMVariant::ValueType::List:
            return level < cf::kMaximumDepth ? setFromList(target, value.listValue(), level + 1) : target.setNull();
        case CMVariant::ValueType::Map:
            return level < cf::kMaximumDepth ? setFromMap(target, value.mapValue(), level + 1) : target.setNull();
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
