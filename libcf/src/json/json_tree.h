#ifndef CF_SRC_JSON_TREE_H
#define CF_SRC_JSON_TREE_H

#include <cstddef>
#include <forward_list>
#include <string>
#include <string_view>

#include "cf/json.h"

namespace cf {

class JsonTree;

/// One value of a document built member by member. Items and members are a linked list under their container, so that
/// adding one moves none of the others.
struct JsonNode {
    JsonTree* tree = nullptr;
    JsonNode* parent = nullptr;
    JsonNode* next = nullptr;
    JsonNode* firstChild = nullptr;
    JsonNode* lastChild = nullptr;
    std::size_t childCount = 0;
    COJsonValue::Type type = COJsonValue::Type::Null;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::string key;

    /// Gives this value a new type and makes it empty, false or zero. Its children are no longer part of the document.
    void reset(COJsonValue::Type newType) noexcept;
    /// The first member with this key; null if there is none or this is no object.
    [[nodiscard]] JsonNode* findMember(std::string_view memberKey) noexcept;
};

/// Owns the nodes of a built document. A node stays at its address, and alive, as long as its tree.
class JsonTree {
public:
    JsonTree() = default;
    JsonTree(const JsonTree&) = delete;
    JsonTree& operator=(const JsonTree&) = delete;

    /// A new null value without a parent.
    JsonNode& addRoot();
    /// Appends a null value to a container.
    JsonNode& addChild(JsonNode& parent, std::string_view key);

private:
    std::forward_list<JsonNode> m_nodes;
};

/// Writes a node with all its content, without recursion: a tree may be deeper than the stack allows.
void writeTree(const JsonNode& root, COJsonWriter& writer);

}  // namespace cf

#endif
