#include "conversation/structure_choice.h"

#include <gmock/gmock.h>

namespace {

using host::DatabaseStructure;
using host::FittedStructure;
using host::ForeignKeyDescription;
using host::RelationDescription;
using host::SchemaDescription;
using testing::ElementsAre;
using testing::IsEmpty;

RelationDescription makeTable(const std::string& name, const std::string& parent = {}) {
    RelationDescription table;
    table.name = name;
    table.columns.resize(1);
    table.columns[0].name = "id";
    table.columns[0].type = "INTEGER";
    if (!parent.empty()) {
        ForeignKeyDescription key;
        key.columns = {"id"};
        key.parentTable = parent;
        key.parentColumns = {"id"};
        table.foreignKeys.push_back(key);
    }
    return table;
}

/// customers <- orders <- items, and two tables that nothing is connected with.
DatabaseStructure makeShop() {
    DatabaseStructure structure;
    structure.catalogs.resize(1);
    SchemaDescription shop;
    shop.name = "shop";
    shop.isDefault = true;
    shop.tables = {makeTable("log"), makeTable("customers"), makeTable("orders", "customers"),
                   makeTable("items", "orders"), makeTable("news")};
    SchemaDescription archive;
    archive.name = "archive";
    archive.views = {makeTable("orders")};
    structure.catalogs[0].schemas = {shop, archive};
    return structure;
}

std::vector<std::string> listNames(const DatabaseStructure& structure) {
    std::vector<std::string> names;
    visitRelations(structure, [&](const SchemaDescription& schema, const RelationDescription& relation) {
        names.push_back(schema.name + "." + relation.name);
    });
    return names;
}

TEST(StructureChoice, LeavesNothingOutOfAStructureThatFits) {
    const FittedStructure fitted = host::fitToBudget(makeShop(), 100000, "");
    EXPECT_EQ(listNames(fitted.structure), listNames(makeShop()));
    EXPECT_THAT(fitted.leftOut, IsEmpty());
}

TEST(StructureChoice, LeavesTablesOutFromTheEnd) {
    EXPECT_THAT(host::fitToBudget(makeShop(), 60, "").leftOut, testing::Contains("news"));
    EXPECT_THAT(host::fitToBudget(makeShop(), 60, "").leftOut, testing::Not(testing::Contains("log")));
}

TEST(StructureChoice, LeavesOutLastWhatTheQuestionNamesAndItsNeighbours) {
    const FittedStructure neighbours = host::fitToBudget(makeShop(), 60, "Which item sold best?");
    EXPECT_THAT(listNames(neighbours.structure), testing::Contains("shop.items"));
    EXPECT_THAT(listNames(neighbours.structure), testing::Contains("shop.orders"));
    EXPECT_THAT(neighbours.leftOut, testing::Contains("log"));
    const FittedStructure named = host::fitToBudget(makeShop(), 25, "Which item sold best?");
    EXPECT_THAT(listNames(named.structure), ElementsAre("shop.items"));
    EXPECT_THAT(named.structure.catalogs.at(0).schemas.at(0).tables.at(0).foreignKeys, IsEmpty());
}

TEST(StructureChoice, WritesTheDetailThatTheStructureHasNoPlaceFor) {
    DatabaseStructure structure = makeShop();
    EXPECT_EQ(host::writeDetail(structure), "");
    RelationDescription& table = structure.catalogs[0].schemas[0].tables[1];
    table.comment = "who buys";
    table.columns[0].isNullable = false;
    table.columns[0].defaultText = "1";
    table.columns[0].comment = "a\nnumber";
    table.indexes = {"UNIQUE (id)"};
    table.constraints = {"CHECK (id > 0)"};
    EXPECT_EQ(host::writeDetail(structure),
              "shop.customers: -- who buys\n  id NOT NULL DEFAULT 1 -- a\u240anumber\n  index: UNIQUE (id)\n"
              "  constraint: CHECK (id > 0)\n");
    structure.catalogs[0].schemas.pop_back();
    EXPECT_THAT(host::writeDetail(structure), testing::StartsWith("customers: -- who buys\n"));
}

}  // namespace
