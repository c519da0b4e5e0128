#include "structure_generator.h"

#include <utility>

using Json = StructureGenerator::Json;

Json StructureGenerator::makeStructure() {
    return spoil(makeArray(4, [this] { return makeCatalog(); }));
}

Json StructureGenerator::makeName() {
    static const char* const kNames[] = {"a",       "",           "id",  "user_id", "`",         "a`b",
                                         " ",       "x y",        "\n",  "\"",      "\\",        "é",
                                         "таблица", "🐘",          "dbo", "public",  "optional",  "null",
                                         ";",       "DROP TABLE", "%s",  "{name",   "column\t1", "varchar(255)"};
    return kNames[pick(std::size(kNames))];
}

Json StructureGenerator::makeWrong() {
    switch (pick(8)) {
        case 0:
            return nullptr;
        case 1:
            return true;
        case 2:
            return 1.5;
        case 3:
            return "text";
        case 4:
            return Json::array();
        case 5:
            return Json::object();
        case 6:
            return Json::array({1, "a"});
        default:
            return Json::object({{"name", "n"}});
    }
}

Json StructureGenerator::spoil(Json value) {
    return pick(100) < m_wrongPercent ? makeWrong() : std::move(value);
}

void StructureGenerator::add(Json& object, const char* key, Json value) {
    if (pick(100) >= m_wrongPercent) {
        object[key] = spoil(std::move(value));
    }
}

void StructureGenerator::addOptional(Json& object, const char* key, Json value) {
    if (!isOnce(3)) {
        object[key] = spoil(std::move(value));
    }
}

template <class Make>
Json StructureGenerator::makeArray(std::uint32_t most, Make make) {
    Json array = Json::array();
    const std::uint32_t count = pick(most + 1);
    for (std::uint32_t i = 0; i < count; ++i) {
        array.push_back(spoil(make()));
    }
    return array;
}

Json StructureGenerator::makeNames() {
    return makeArray(3, [this] { return makeName(); });
}

Json StructureGenerator::makeField() {
    Json field = Json::object();
    add(field, "name", makeName());
    add(field, "type", makeName());
    return field;
}

Json StructureGenerator::makeForeignKey() {
    Json key = Json::object();
    add(key, "fields", makeNames());
    addOptional(key, "ref_schema", makeName());
    add(key, "ref_table", makeName());
    add(key, "ref_fields", makeNames());
    return key;
}

Json StructureGenerator::makeObject() {
    Json object = Json::object();
    addOptional(object, "fkeys", makeArray(2, [this] { return makeForeignKey(); }));
    add(object, "fields", makeArray(4, [this] { return makeField(); }));
    add(object, "name", makeName());
    addOptional(object, "pkeys", makeNames());
    return object;
}

Json StructureGenerator::makeSchema() {
    Json schema = Json::object();
    addOptional(schema, "schema_id", makeName());
    addOptional(schema, "schema_name", makeName());
    addOptional(schema, "instructions", makeNames());
    for (const char* key : {"mviews", "tables", "views"}) {
        addOptional(schema, key, makeArray(3, [this] { return makeObject(); }));
    }
    return schema;
}

Json StructureGenerator::makeCatalog() {
    Json catalog = Json::object();
    addOptional(catalog, "catalog_name", makeName());
    addOptional(catalog, "catalog_id", makeName());
    addOptional(catalog, "instructions", makeNames());
    add(catalog, "schemas", makeArray(3, [this] { return makeSchema(); }));
    return catalog;
}
