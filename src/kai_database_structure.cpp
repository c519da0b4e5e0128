#include "kai_database_structure.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

bool isStringOrMissing(const COJsonValue& value) {
    return value.isString() || !value.getIsValidJson();
}

bool isArrayOrMissing(const COJsonValue& value) {
    return value.isArray() || !value.getIsValidJson();
}

/// Appends pieces to a text. They are gathered on the stack first: a statement has a hundred short ones, and appending
/// each to a string costs several times what copying it does.
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
            flush();
            (m_text.append(pieces), ...);
        }
    }

    /// Puts what was gathered into the text. What is not put there is lost.
    void flush() {
        m_text.append(m_gathered, m_size);
        m_size = 0;
    }

private:
    // A literal's length is part of its type, so nothing is counted when the program runs.
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

// In the functions below only a text that is not there has no data().

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
    std::string_view opening = "`";
    for (const COJsonValue field : fields.obtainItems()) {
        const auto [nameValue, typeValue] = field.obtainMemberValues({"name", "type"});
        const std::string_view name = nameValue.obtainString();
        const std::string_view type = typeValue.obtainString();
        if (name.data() == nullptr || type.data() == nullptr) {
            return false;
        }
        out.append(opening, name, "` ", type);
        opening = ", `";
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

struct Catalog {
    COJsonValue id;
    COJsonValue name;
    COJsonValue schemas;

    [[nodiscard]] bool hasName() const { return !name.obtainString().empty(); }
};

struct Schema {
    COJsonValue id;
    COJsonValue name;
    COJsonValue tables;
    COJsonValue views;
    COJsonValue materializedViews;
};

template <class Visitor>
void visitCatalogs(const COJsonValue& root, KAIMalformedReporter reportMalformed, Visitor visit) {
    for (const COJsonValue item : root.obtainItems()) {
        const Catalog catalog{item.obtainMember("catalog_id"), item.obtainMember("catalog_name"),
                              item.obtainMember("schemas")};
        if (isStringOrMissing(catalog.id) && isStringOrMissing(catalog.name) && catalog.schemas.isArray()) {
            visit(catalog);
        } else {
            reportMalformed();
        }
    }
}

template <class Visitor>
void visitSchemas(const Catalog& catalog, KAIMalformedReporter reportMalformed, Visitor visit) {
    for (const COJsonValue item : catalog.schemas.obtainItems()) {
        const Schema schema{item.obtainMember("schema_id"), item.obtainMember("schema_name"),
                            item.obtainMember("tables"), item.obtainMember("views"), item.obtainMember("mviews")};
        if (item.isObject() && isStringOrMissing(schema.id) && isStringOrMissing(schema.name) &&
            isArrayOrMissing(schema.tables) && isArrayOrMissing(schema.views) &&
            isArrayOrMissing(schema.materializedViews)) {
            visit(schema);
        } else {
            reportMalformed();
        }
    }
}

/// Calls visit(kind, description) for each object of the schema: tables, then views, then materialized views.
template <class Visitor>
void visitDescriptions(const Schema& schema, Visitor visit) {
    for (const COJsonValue description : schema.tables.obtainItems()) {
        visit("TABLE", description);
    }
    for (const COJsonValue description : schema.views.obtainItems()) {
        visit("VIEW", description);
    }
    for (const COJsonValue description : schema.materializedViews.obtainItems()) {
        visit("MATERIALIZED VIEW", description);
    }
}

void appendCatalogLine(std::string& text, const Catalog& catalog) {
    text += "USE CATALOG `";
    text += catalog.name.obtainString();
    text += '`';
}

void addStringIfPresent(CMVariantMap& map, const char* key, const COJsonValue& value) {
    if (value.isString()) {
        map.emplace(key, std::string(value.obtainString()));
    }
}

CMVariantMap readSchema(const Schema& schema, KAIMalformedReporter reportMalformed) {
    CMVariantMap map;
    addStringIfPresent(map, "schema_id", schema.id);
    addStringIfPresent(map, "schema_name", schema.name);
    CMVariantList instructions;
    visitDescriptions(schema, [&](std::string_view kind, const COJsonValue& description) {
        std::string statement;
        appendCreateStatement(statement, schema.name.obtainString(), kind, description, reportMalformed);
        instructions.emplace_back(std::move(statement));
    });
    map.emplace("instructions", std::move(instructions));
    return map;
}

CMVariantMap readCatalog(const Catalog& catalog, KAIMalformedReporter reportMalformed) {
    CMVariantMap map;
    addStringIfPresent(map, "catalog_id", catalog.id);
    addStringIfPresent(map, "catalog_name", catalog.name);
    CMVariantList instructions;
    if (catalog.name.isString()) {
        std::string line;
        appendCatalogLine(line, catalog);
        instructions.emplace_back(std::move(line));
    }
    map.emplace("instructions", std::move(instructions));
    CMVariantList schemas;
    visitSchemas(catalog, reportMalformed,
                 [&](const Schema& schema) { schemas.emplace_back(readSchema(schema, reportMalformed)); });
    map.emplace("schemas", std::move(schemas));
    return map;
}

void appendCatalogText(std::string& text, const Catalog& catalog, KAIMalformedReporter reportMalformed) {
    if (catalog.name.isString()) {
        appendCatalogLine(text, catalog);
        text += '\n';
    }
    visitSchemas(catalog, reportMalformed, [&](const Schema& schema) {
        visitDescriptions(schema, [&](std::string_view kind, const COJsonValue& description) {
            appendCreateStatement(text, schema.name.obtainString(), kind, description, reportMalformed);
            text += '\n';
        });
    });
}

void setArrayOfOne(COJsonValue value, std::string_view item) {
    value.setArray();
    value.addItem().setString(item);
}

COJsonValue addObjectInArray(COJsonValue array) {
    array.setArray();
    COJsonValue object = array.addItem();
    object.setObject();
    return object;
}

void fillTableTemplate(COJsonValue table) {
    table.addKeyValue("name").setString("");
    COJsonValue field = addObjectInArray(table.addKeyValue("fields"));
    field.addKeyValue("name").setString("");
    field.addKeyValue("type").setString("");
    setArrayOfOne(table.addKeyValue("pkeys"), "optional");
    COJsonValue foreignKey = addObjectInArray(table.addKeyValue("fkeys"));
    setArrayOfOne(foreignKey.addKeyValue("fields"), "");
    foreignKey.addKeyValue("ref_schema").setString("optional");
    foreignKey.addKeyValue("ref_table").setString("");
    setArrayOfOne(foreignKey.addKeyValue("ref_fields"), "");
}

}  // namespace

COJson buildDatabaseStructureTemplate() {
    COJson json;
    COJsonValue catalog = addObjectInArray(json.obtainRoot());
    catalog.addKeyValue("catalog_id").setString("optional");
    catalog.addKeyValue("catalog_name").setString("optional");
    COJsonValue schema = addObjectInArray(catalog.addKeyValue("schemas"));
    schema.addKeyValue("schema_id").setString("optional");
    schema.addKeyValue("schema_name").setString("optional");
    fillTableTemplate(addObjectInArray(schema.addKeyValue("tables")));
    // Views have the form of tables: one item that is left unset stands for it.
    for (const char* key : {"views", "mviews"}) {
        COJsonValue views = schema.addKeyValue(key);
        views.setArray();
        views.addItem();
    }
    return json;
}

CMVariantList readDatabaseStructure(std::string_view json, KAIMalformedReporter reportMalformed) {
    const COJson document(json);
    CMVariantList unnamed;
    CMVariantList named;
    visitCatalogs(document.obtainRoot(), reportMalformed, [&](const Catalog& catalog) {
        (catalog.hasName() ? named : unnamed).emplace_back(readCatalog(catalog, reportMalformed));
    });
    std::move(named.begin(), named.end(), std::back_inserter(unnamed));
    return unnamed;
}

void appendDatabaseStructureText(std::string& text, std::string_view json, KAIMalformedReporter reportMalformed) {
    const COJson document(json);
    // Statements take about two thirds of the bytes of their description.
    text.reserve(text.size() + json.size() / 3 * 2);
    std::string named;
    visitCatalogs(document.obtainRoot(), reportMalformed, [&](const Catalog& catalog) {
        appendCatalogText(catalog.hasName() ? named : text, catalog, reportMalformed);
    });
    text += named;
}

void appendCreateStatement(std::string& text, std::string_view qualifier, std::string_view kind,
                           const COJsonValue& description, KAIMalformedReporter reportMalformed) {
    const std::size_t start = text.size();
    PieceAppender out(text);
    if (appendWellFormedStatement(out, qualifier, kind, description)) {
        out.flush();
    } else {
        reportMalformed();
        text.resize(start);
    }
}
