#ifndef TESTS_STATEMENT_ORACLE_H
#define TESTS_STATEMENT_ORACLE_H

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/// What the database-structure readers should make of a description, found in a plain and slow way from the rules.
struct StatementOracle {
    using Json = nlohmann::ordered_json;

    explicit StatementOracle(const Json& structure);

    /// The list, as JSON: catalog objects with members in the order of their names.
    nlohmann::json list = nlohmann::json::array();
    /// The statements, one a line.
    std::string text;
    /// How many malformed places are reported.
    std::size_t reportCount = 0;

private:
    struct Catalog {
        bool isNamed = false;
        nlohmann::json map;
    };

    void readCatalog(const Json& item, std::vector<Catalog>& catalogs);
    void readSchema(const Json& item, nlohmann::json& schemas);
    void readObjects(const Json& schema, const char* key, const std::string& kind, const std::string& qualifier,
                     nlohmann::json& instructions);
    void writeText();
};

/// One CREATE statement; empty when the description is malformed.
std::string buildStatementByTheRules(const std::string& qualifier, const std::string& kind,
                                     const nlohmann::ordered_json& description);

#endif
