#include "statement_oracle.h"

#include <algorithm>
#include <optional>

using Json = nlohmann::ordered_json;

namespace {

std::string quoteName(const std::string& name) {
    return "`" + name + "`";
}

bool has(const Json& object, const char* key) {
    return object.is_object() && object.contains(key);
}

bool isString(const Json& object, const char* key) {
    return has(object, key) && object[key].is_string();
}

bool isArray(const Json& object, const char* key) {
    return has(object, key) && object[key].is_array();
}

bool isStringIfPresent(const Json& object, const char* key) {
    return !has(object, key) || object[key].is_string();
}

bool isArrayIfPresent(const Json& object, const char* key) {
    return !has(object, key) || object[key].is_array();
}

bool areStrings(const Json& array) {
    return std::all_of(array.begin(), array.end(), [](const Json& item) { return item.is_string(); });
}

std::string joinNames(const Json& names) {
    std::string joined;
    for (const Json& name : names) {
        joined += quoteName(name.get<std::string>());
    }
    return joined;
}

std::optional<std::string> writeFields(const Json& fields) {
    std::string text;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!isString(fields[i], "name") || !isString(fields[i], "type")) {
            return std::nullopt;
        }
        text += i == 0 ? "" : ", ";
        text += quoteName(fields[i]["name"].get<std::string>()) + " " + fields[i]["type"].get<std::string>();
    }
    return text;
}

std::optional<std::string> writePrimaryKey(const Json& description) {
    if (!has(description, "pkeys") || description["pkeys"].empty()) {
        return "";
    }
    if (!areStrings(description["pkeys"])) {
        return std::nullopt;
    }
    return ", PRIMARY KEY(" + joinNames(description["pkeys"]) + ")";
}

std::optional<std::string> writeForeignKey(const Json& key) {
    if (!key.is_object() || !isArray(key, "fields") || !isStringIfPresent(key, "ref_schema") ||
        !isString(key, "ref_table") || !isArray(key, "ref_fields")) {
        return std::nullopt;
    }
    if (key["fields"].empty() || key["ref_fields"].empty()) {
        return "";
    }
    if (!areStrings(key["fields"]) || !areStrings(key["ref_fields"])) {
        return std::nullopt;
    }
    const std::string qualifier = has(key, "ref_schema") ? quoteName(key["ref_schema"].get<std::string>()) + "." : "";
    return ", FOREIGN KEY(" + joinNames(key["fields"]) + ") REFERENCES " + qualifier +
           quoteName(key["ref_table"].get<std::string>()) + "(" + joinNames(key["ref_fields"]) + ")";
}

/// Fields and keys; nothing when one of them is malformed.
std::optional<std::string> writeInside(const Json& description) {
    if (description["fields"].empty()) {
        return "";
    }
    std::vector<std::optional<std::string>> pieces{writeFields(description["fields"]), writePrimaryKey(description)};
    if (has(description, "fkeys")) {
        for (const Json& key : description["fkeys"]) {
            pieces.push_back(writeForeignKey(key));
        }
    }
    std::string inside;
    for (const std::optional<std::string>& piece : pieces) {
        if (!piece) {
            return std::nullopt;
        }
        inside += *piece;
    }
    return inside;
}

void copyIfPresent(const Json& from, const char* key, nlohmann::json& to) {
    if (has(from, key)) {
        to[key] = from[key].get<std::string>();
    }
}

}  // namespace

std::string buildStatementByTheRules(const std::string& qualifier, const std::string& kind, const Json& description) {
    if (!isString(description, "name") || !isArray(description, "fields") || !isArrayIfPresent(description, "pkeys") ||
        !isArrayIfPresent(description, "fkeys")) {
        return "";
    }
    const std::optional<std::string> inside = writeInside(description);
    if (!inside) {
        return "";
    }
    return "CREATE " + kind + " " + (qualifier.empty() ? "" : quoteName(qualifier) + ".") +
           quoteName(description["name"].get<std::string>()) + " (" + *inside + ")";
}

StatementOracle::StatementOracle(const Json& structure) {
    std::vector<Catalog> catalogs;
    if (structure.is_array()) {
        for (const Json& item : structure) {
            readCatalog(item, catalogs);
        }
    }
    for (const bool isNamed : {false, true}) {
        for (const Catalog& catalog : catalogs) {
            if (catalog.isNamed == isNamed) {
                list.push_back(catalog.map);
            }
        }
    }
    writeText();
}

void StatementOracle::readCatalog(const Json& item, std::vector<Catalog>& catalogs) {
    if (!item.is_object() || !isStringIfPresent(item, "catalog_id") || !isStringIfPresent(item, "catalog_name") ||
        !isArray(item, "schemas")) {
        ++reportCount;
        return;
    }
    Catalog catalog{.map = nlohmann::json::object()};
    copyIfPresent(item, "catalog_id", catalog.map);
    copyIfPresent(item, "catalog_name", catalog.map);
    catalog.map["instructions"] = nlohmann::json::array();
    if (has(item, "catalog_name")) {
        const auto name = item["catalog_name"].get<std::string>();
        catalog.isNamed = !name.empty();
        catalog.map["instructions"].push_back("USE CATALOG " + quoteName(name));
    }
    catalog.map["schemas"] = nlohmann::json::array();
    for (const Json& schema : item["schemas"]) {
        readSchema(schema, catalog.map["schemas"]);
    }
    catalogs.push_back(catalog);
}

void StatementOracle::readSchema(const Json& item, nlohmann::json& schemas) {
    if (!item.is_object() || !isStringIfPresent(item, "schema_id") || !isStringIfPresent(item, "schema_name") ||
        !isArrayIfPresent(item, "tables") || !isArrayIfPresent(item, "views") || !isArrayIfPresent(item, "mviews")) {
        ++reportCount;
        return;
    }
    nlohmann::json schema = nlohmann::json::object();
    copyIfPresent(item, "schema_id", schema);
    copyIfPresent(item, "schema_name", schema);
    const std::string qualifier = has(item, "schema_name") ? item["schema_name"].get<std::string>() : "";
    schema["instructions"] = nlohmann::json::array();
    readObjects(item, "tables", "TABLE", qualifier, schema["instructions"]);
    readObjects(item, "views", "VIEW", qualifier, schema["instructions"]);
    readObjects(item, "mviews", "MATERIALIZED VIEW", qualifier, schema["instructions"]);
    schemas.push_back(schema);
}

void StatementOracle::readObjects(const Json& schema, const char* key, const std::string& kind,
                                  const std::string& qualifier, nlohmann::json& instructions) {
    if (!has(schema, key)) {
        return;
    }
    for (const Json& description : schema[key]) {
        const std::string statement = buildStatementByTheRules(qualifier, kind, description);
        reportCount += statement.empty() ? 1 : 0;
        instructions.push_back(statement);
    }
}

void StatementOracle::writeText() {
    const auto writeLines = [this](const nlohmann::json& instructions) {
        for (const nlohmann::json& line : instructions) {
            text += line.get<std::string>() + "\n";
        }
    };
    for (const nlohmann::json& catalog : list) {
        writeLines(catalog["instructions"]);
        for (const nlohmann::json& schema : catalog["schemas"]) {
            writeLines(schema["instructions"]);
        }
    }
}
