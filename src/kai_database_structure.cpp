#include "kai_database_structure.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "kai_optional_members.h"

namespace kai {

namespace {

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
void visitCatalogs(const COJsonValue& root, MalformedPlaces& malformed, Visitor visit) {
    for (const COJsonValue item : root.obtainItems()) {
        const Catalog catalog{item.obtainMember("catalog_id"), item.obtainMember("catalog_name"),
                              item.obtainMember("schemas")};
        if (isStringOrMissing(catalog.id) && isStringOrMissing(catalog.name) && catalog.schemas.isArray()) {
            visit(catalog);
        } else {
            malformed.report();
        }
    }
}

template <class Visitor>
void visitSchemas(const Catalog& catalog, MalformedPlaces& malformed, Visitor visit) {
    for (const COJsonValue item : catalog.schemas.obtainItems()) {
        const Schema schema{item.obtainMember("schema_id"), item.obtainMember("schema_name"),
                            item.obtainMember("tables"), item.obtainMember("views"), item.obtainMember("mviews")};
        if (item.isObject() && isStringOrMissing(schema.id) && isStringOrMissing(schema.name) &&
            isArrayOrMissing(schema.tables) && isArrayOrMissing(schema.views) &&
            isArrayOrMissing(schema.materializedViews)) {
            visit(schema);
        } else {
            malformed.report();
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

CMVariantMap readSchema(const Schema& schema, MalformedPlaces& malformed) {
    CMVariantMap map;
    addStringIfPresent(map, "schema_id", schema.id);
    addStringIfPresent(map, "schema_name", schema.name);
    CMVariantList instructions;
    visitDescriptions(schema, [&](std::string_view kind, const COJsonValue& description) {
        std::string statement;
        appendCreateStatement(statement, schema.name.obtainString(), kind, description, malformed);
        instructions.emplace_back(std::move(statement));
    });
    map.emplace("instructions", std::move(instructions));
    return map;
}

CMVariantMap readCatalog(const Catalog& catalog, MalformedPlaces& malformed) {
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
    visitSchemas(catalog, malformed,
                 [&](const Schema& schema) { schemas.emplace_back(readSchema(schema, malformed)); });
    map.emplace("schemas", std::move(schemas));
    return map;
}

void appendCatalogText(std::string& text, const Catalog& catalog, MalformedPlaces& malformed) {
    if (catalog.name.isString()) {
        appendCatalogLine(text, catalog);
        text += '\n';
    }
    visitSchemas(catalog, malformed, [&](const Schema& schema) {
        visitDescriptions(schema, [&](std::string_view kind, const COJsonValue& description) {
            appendCreateStatement(text, schema.name.obtainString(), kind, description, malformed);
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
    // Views have the form of tables, which one null item stands for.
    for (const char* key : {"views", "mviews"}) {
        COJsonValue views = schema.addKeyValue(key);
        views.setArray();
        views.addItem();
    }
    return json;
}

CMVariantList readDatabaseStructure(std::string_view json, MalformedPlaces& malformed) {
    const COJson document(json);
    CMVariantList unnamed;
    CMVariantList named;
    visitCatalogs(document.obtainRoot(), malformed, [&](const Catalog& catalog) {
        (catalog.hasName() ? named : unnamed).emplace_back(readCatalog(catalog, malformed));
    });
    std::move(named.begin(), named.end(), std::back_inserter(unnamed));
    return unnamed;
}

void appendDatabaseStructureText(std::string& text, std::string_view json, MalformedPlaces& malformed) {
    const COJson document(json);
    // Statements take about two thirds of the bytes of their description.
    text.reserve(text.size() + json.size() / 3 * 2);
    std::vector<Catalog> catalogs;
    visitCatalogs(document.obtainRoot(), malformed,
                  [&catalogs](const Catalog& catalog) { catalogs.push_back(catalog); });
    std::stable_partition(catalogs.begin(), catalogs.end(), [](const Catalog& catalog) { return !catalog.hasName(); });
    for (const Catalog& catalog : catalogs) {
        appendCatalogText(text, catalog, malformed);
    }
}

}  // namespace kai
