#include "kai_create_statement.h"

#include <cstddef>
#include <cstring>
#include <initializer_list>

#include "kai_optional_members.h"

namespace kai {

namespace {

/// Appends pieces to a text. The pieces are collected on the stack first: a statement has about a hundred short ones,
/// and appending each to a string costs several times as much as copying it.
class PieceAppender {
public:
    explicit PieceAppender(std::string& text) : m_text(text) {}

    /// @param pieces  literals and string views
    template <class... Pieces>
    void append(const Pieces&... pieces) {
        if ((measure(pieces) + ...) <= sizeof m_gathered - m_size) {
            char* end = m_gathered + m_size;
            ((end = copy(end, pieces)), ...);
            m_size = static_cast<std::size_t>(end - m_gathered);
        } else {
            appendDirectly({pieces...});
        }
    }

    /// Appends the collected pieces to the text. Without this call they are lost.
    void flush() {
        m_text.append(m_gathered, m_size);
        m_size = 0;
    }

private:
    [[gnu::noinline]] void appendDirectly(std::initializer_list<std::string_view> pieces) {
        flush();
        for (const std::string_view piece : pieces) {
            m_text += piece;
        }
    }

    // A literal's length is part of its type, so it is known at compile time.
    template <std::size_t Size>
    static constexpr std::size_t measure(const char (&/*literal*/)[Size]) {
        return Size - 1;
    }
    static std::size_t measure(std::string_view text) { return text.size(); }

    template <std::size_t Size>
    static char* copy(char* end, const char (&literal)[Size]) {
        std::memcpy(end, literal, Size - 1);
        return end + Size - 1;
    }
    static char* copy(char* end, std::string_view text) {
        std::memcpy(end, text.data(), text.size());
        return end + text.size();
    }

    std::string& m_text;
    std::size_t m_size = 0;
    char m_gathered[1024];
};

// In the functions below, only a missing text has a null data().

bool appendNames(PieceAppender& out, const COJsonValue& names) {
    for (const COJsonValue item : names.obtainItems()) {
        const std::string_view name = item.obtainString();
        if (name.data() == nullptr) {
            return false;
        }
        out.append("`", name, "`");
    }
    return true;
}

bool isEmptyArray(const COJsonValue& array) {
    const COJsonItems items = array.obtainItems();
    return !(items.begin() != items.end());
}

bool appendFields(PieceAppender& out, const COJsonValue& fields) {
    bool isFirst = true;
    for (const COJsonValue field : fields.obtainItems()) {
        const auto [nameValue, typeValue] = field.obtainMemberValues({"name", "type"});
        const std::string_view name = nameValue.obtainString();
        const std::string_view type = typeValue.obtainString();
        if (name.data() == nullptr || type.data() == nullptr) {
            return false;
        }
        if (!isFirst) {
            out.append(", ");
        }
        out.append("`", name, "` ", type);
        isFirst = false;
    }
    return true;
}

bool appendPrimaryKey(PieceAppender& out, const COJsonValue& keys) {
    if (isEmptyArray(keys)) {
        return true;
    }
    out.append(", PRIMARY KEY(");
    if (!appendNames(out, keys)) {
        return false;
    }
    out.append(")");
    return true;
}

bool appendForeignKey(PieceAppender& out, const COJsonValue& key) {
    const auto [fields, schema, table, refFields] =
        key.obtainMemberValues({"fields", "ref_schema", "ref_table", "ref_fields"});
    if (!fields.isArray() || !isStringOrMissing(schema) || !table.isString() || !refFields.isArray()) {
        return false;
    }
    if (isEmptyArray(fields) || isEmptyArray(refFields)) {
        return true;
    }
    out.append(", FOREIGN KEY(");
    if (!appendNames(out, fields)) {
        return false;
    }
    out.append(") REFERENCES ");
    if (schema.isString()) {
        out.append("`", schema.obtainString(), "`.");
    }
    out.append("`", table.obtainString(), "`(");
    if (!appendNames(out, refFields)) {
        return false;
    }
    out.append(")");
    return true;
}

bool appendForeignKeys(PieceAppender& out, const COJsonValue& keys) {
    for (const COJsonValue key : keys.obtainItems()) {
        if (!appendForeignKey(out, key)) {
            return false;
        }
    }
    return true;
}

bool appendWellFormedStatement(PieceAppender& out, std::string_view qualifier, std::string_view kind,
                               const COJsonValue& description) {
    const auto [name, fields, primaryKey, foreignKeys] =
        description.obtainMemberValues({"name", "fields", "pkeys", "fkeys"});
    if (!name.isString() || !fields.isArray() || !isArrayOrMissing(primaryKey) || !isArrayOrMissing(foreignKeys)) {
        return false;
    }
    out.append("CREATE ", kind, " ");
    if (!qualifier.empty()) {
        out.append("`", qualifier, "`.");
    }
    out.append("`", name.obtainString(), "` (");
    if (!isEmptyArray(fields)) {
        if (!appendFields(out, fields) || !appendPrimaryKey(out, primaryKey) || !appendForeignKeys(out, foreignKeys)) {
            return false;
        }
    }
    out.append(")");
    return true;
}

}  // namespace

void appendCreateStatement(std::string& text, std::string_view qualifier, std::string_view kind,
                           const COJsonValue& description, MalformedPlaces& malformed) {
    const std::size_t start = text.size();
    PieceAppender out(text);
    if (appendWellFormedStatement(out, qualifier, kind, description)) {
        out.flush();
    } else {
        malformed.report();
        text.resize(start);
    }
}

}  // namespace kai
