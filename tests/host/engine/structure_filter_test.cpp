#include "engine/structure_filter.h"

#include <gmock/gmock.h>

namespace {

using host::DatabaseStructure;
using host::FilterSummary;
using host::RelationDescription;
using testing::ElementsAre;
using testing::IsEmpty;

RelationDescription makeTable(const std::string& name, const std::string& parentSchema = "",
                              const std::string& parent = "") {
    RelationDescription table;
    table.name = name;
    if (!parent.empty()) {
        table.foreignKeys.push_back({{"a"}, parentSchema, parent, {"a"}});
    }
    return table;
}

/// Schemas "public" (users, orders -> users, audit -> sales.deals) and "sales" (deals -> public.users, view totals).
DatabaseStructure makeStructure() {
    host::SchemaDescription common;
    common.name = "public";
    common.tables = {makeTable("users"), makeTable("orders", "", "users"), makeTable("audit", "sales", "deals")};
    host::SchemaDescription sales;
    sales.name = "sales";
    sales.tables = {makeTable("deals", "public", "users")};
    sales.views = {makeTable("totals")};
    DatabaseStructure structure;
    structure.catalogs.emplace_back().schemas = {common, sales};
    return structure;
}

/// The relations that stay, with the number of their foreign keys.
std::vector<std::string> list(const DatabaseStructure& structure) {
    std::vector<std::string> names;
    host::visitRelations(structure, [&](const host::SchemaDescription& schema, const RelationDescription& relation) {
        names.push_back(schema.name + "." + relation.name + ":" + std::to_string(relation.foreignKeys.size()));
    });
    return names;
}

TEST(StructureFilter, KeepsAllWithoutPatterns) {
    DatabaseStructure structure = makeStructure();
    const FilterSummary summary = host::filterStructure(structure, {});
    EXPECT_THAT(list(structure),
                ElementsAre("public.users:0", "public.orders:1", "public.audit:1", "sales.deals:1", "sales.totals:0"));
    EXPECT_EQ(summary.removed.relations, 0U);
    EXPECT_THAT(summary.unusedPatterns, IsEmpty());
}

TEST(StructureFilter, KeepsTheNamedRelations) {
    DatabaseStructure structure = makeStructure();
    const FilterSummary summary =
        host::filterStructure(structure, {.schemas = {}, .relations = {"ORD*", "sales.d*"}, .excluded = {}});
    EXPECT_THAT(list(structure), ElementsAre("public.orders:0", "sales.deals:0"));
    EXPECT_EQ(summary.removed.relations, 3U);
    EXPECT_EQ(summary.removed.foreignKeys, 2U);
}

TEST(StructureFilter, TellsNotEvenTheNamesOfExcludedRelations) {
    DatabaseStructure structure = makeStructure();
    host::filterStructure(structure, {.schemas = {}, .relations = {}, .excluded = {"users"}});
    EXPECT_THAT(list(structure), ElementsAre("public.orders:0", "public.audit:1", "sales.deals:0", "sales.totals:0"));
}

TEST(StructureFilter, KeepsTheNamedSchemasAndDropsEmptyOnes) {
    DatabaseStructure structure = makeStructure();
    host::filterStructure(structure, {.schemas = {"sales"}, .relations = {}, .excluded = {"totals"}});
    EXPECT_THAT(list(structure), ElementsAre("sales.deals:0"));
    EXPECT_EQ(structure.catalogs.at(0).schemas.size(), 1U);
}

TEST(StructureFilter, TellsOfPatternsThatFitNothing) {
    DatabaseStructure structure = makeStructure();
    const FilterSummary summary =
        host::filterStructure(structure, {.schemas = {"public"}, .relations = {"user", "o*"}, .excluded = {"x*"}});
    EXPECT_THAT(summary.unusedPatterns, ElementsAre("user", "x*"));
}

TEST(StructureFilter, SplitsPatterns) {
    EXPECT_THAT(host::splitPatterns(" a*, b.c ,,d"), ElementsAre("a*", "b.c", "d"));
    EXPECT_THAT(host::splitPatterns(" , "), IsEmpty());
}

TEST(StructureFilter, FitsPatterns) {
    EXPECT_TRUE(host::fitsPattern("Orders", "orders"));
    EXPECT_TRUE(host::fitsPattern("orders", "*"));
    EXPECT_TRUE(host::fitsPattern("", "*"));
    EXPECT_TRUE(host::fitsPattern("ababac", "*ab*c"));
    EXPECT_FALSE(host::fitsPattern("orders", "order"));
    EXPECT_FALSE(host::fitsPattern("orders", "*x*"));
    EXPECT_FALSE(host::fitsPattern("a", ""));
    EXPECT_FALSE(host::fitsPattern(std::string(5000, 'a'), "*a*a*a*a*a*a*a*a*b"));
}

}  // namespace
