#include "json/json_tree.h"

namespace cf {

using Type = COJsonValue::Type;

void JsonNode::reset(Type newType) noexcept {
    firstChild = nullptr;
    lastChild = nullptr;
    childCount = 0;
    type = newType;
    boolean = false;
    number = 0.0;
    text.clear();
}

JsonNode* JsonNode::findMember(std::string_view memberKey) noexcept {
    if (type != Type::Object) {
        return nullptr;
    }
    JsonNode* member = firstChild;
    while (member != nullptr && member->key != memberKey) {
        member = member->next;
    }
    return member;
}

JsonNode& JsonTree::addRoot() {
    JsonNode& node = m_nodes.emplace_front();
    node.tree = this;
    return node;
}

JsonNode& JsonTree::addChild(JsonNode& parent, std::string_view key) {
    JsonNode& node = addRoot();
    node.key = key;
    node.parent = &parent;
    (parent.lastChild != nullptr ? parent.lastChild->next : parent.firstChild) = &node;
    parent.lastChild = &node;
    ++parent.childCount;
    return node;
}

namespace {

void writeStart(const JsonNode& node, COJsonWriter& writer) {
    switch (node.type) {
        case Type::Object:
            return writer.beginObject();
        case Type::Array:
            return writer.beginArray();
        case Type::String:
            return writer.writeString(node.text);
        case Type::Number:
            return writer.writeDouble(node.number);
        case Type::Boolean:
            return writer.writeBoolean(node.boolean);
        default:
            return writer.writeNull();
    }
}

void writeEnd(const JsonNode& node, COJsonWriter& writer) {
    if (node.type == Type::Object) {
        writer.endObject();
    } else if (node.type == Type::Array) {
        writer.endArray();
    }
}

}  // namespace

void writeTree(const JsonNode& root, COJsonWriter& writer) {
    const JsonNode* node = &root;
    for (;;) {
        writeStart(*node, writer);
        if (node->firstChild != nullptr) {
            node = node->firstChild;
        } else {
            writeEnd(*node, writer);
            while (node != &root && node->next == nullptr) {
                node = node->parent;
                writeEnd(*node, writer);
            }
            if (node == &root) {
                return;
            }
            node = node->next;
        }
        if (node->parent->type == Type::Object) {
            writer.writeKey(node->key);
        }
    }
}

}  // namespace cf
