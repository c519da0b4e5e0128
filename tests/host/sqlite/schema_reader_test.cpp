#include "sqlite/schema_reader.h"

#include <gmock/gmock.h>

#include "cf/json.h"
#include "host_error.h"
#include "test_folder.h"

namespace {

using host::DatabaseStructure;
using host::RelationDescription;
using host::StructureDetail;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

DatabaseStructure readScript(const std::string& script) {
    const TestFolder folder;
    return host::readSqliteStructure(host::SqliteDatabase(folder.makeDatabase("a.db", script)), StructureDetail::Keys);
}

std::vector<std::string> listNames(const std::vector<RelationDescription>& relations) {
    std::vector<std::string> names;
    for (const RelationDescription& relation : relations) {
        names.push_back(relation.name);
    }
    return names;
}

const RelationDescription& findTable(const DatabaseStructure& structure, const std::string& name) {
    for (const RelationDescription& table : structure.catalogs.at(0).schemas.at(0).tables) {
        if (table.name == name) {
            return table;
        }
    }
    throw std::out_of_range(name);
}

std::vector<std::string> listColumns(const RelationDescription& relation) {
    std::vector<std::string> columns;
    for (const host::ColumnDescription& column : relation.columns) {
        columns.push_back(column.name + ":" + column.type);
    }
    return columns;
}

TEST(SchemaReader, ReadsColumnsWithTheirDeclaredTypes) {
    const DatabaseStructure structure = readScript("CREATE TABLE t (a INTEGER, b VARCHAR(255), c decimal(10, 2), d)");
    EXPECT_THAT(listColumns(findTable(structure, "t")),
                ElementsAre("a:INTEGER", "b:VARCHAR(255)", "c:decimal(10, 2)", "d:ANY"));
}

TEST(SchemaReader, ReadsTablesAndViewsInTheOrderInWhichTheyWereMade) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE z (a); CREATE VIEW y AS SELECT 1 AS one; CREATE TABLE a (a); CREATE VIEW b AS SELECT 2");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables), ElementsAre("z", "a"));
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).views), ElementsAre("y", "b"));
    EXPECT_EQ(host::countRelations(structure), 4U);
}

TEST(SchemaReader, ReadsACompositeKeyInKeyOrder) {
    const DatabaseStructure structure = readScript("CREATE TABLE t (a, b, c, PRIMARY KEY (c, a))");
    EXPECT_THAT(findTable(structure, "t").primaryKey, ElementsAre("c", "a"));
}

TEST(SchemaReader, ReadsTheKeyOfATableWithoutRowid) {
    const DatabaseStructure structure = readScript("CREATE TABLE t (a, b, PRIMARY KEY (b, a)) WITHOUT ROWID");
    EXPECT_THAT(findTable(structure, "t").primaryKey, ElementsAre("b", "a"));
}

TEST(SchemaReader, ReadsATableWithoutAKey) {
    EXPECT_THAT(findTable(readScript("CREATE TABLE t (a)"), "t").primaryKey, IsEmpty());
}

TEST(SchemaReader, ReadsGeneratedColumns) {
    const DatabaseStructure structure =
        readScript("CREATE TABLE t (a INT, v INT AS (a + 1) VIRTUAL, s TEXT GENERATED ALWAYS AS (a || 'x') STORED)");
    ASSERT_EQ(findTable(structure, "t").columns.size(), 3U);
    EXPECT_THAT(findTable(structure, "t").columns[1].name, "v");
    EXPECT_THAT(findTable(structure, "t").columns[2].name, "s");
}

TEST(SchemaReader, ReadsForeignKeysInTheOrderOfTheirDeclaration) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE p (a INT, b INT, PRIMARY KEY (a, b)); CREATE TABLE q (id INTEGER PRIMARY KEY);"
        "CREATE TABLE t (x INT REFERENCES q (id), y INT, z INT, FOREIGN KEY (z, y) REFERENCES p (b, a))");
    const auto& keys = findTable(structure, "t").foreignKeys;
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_THAT(keys[0].columns, ElementsAre("x"));
    EXPECT_EQ(keys[0].parentTable, "q");
    EXPECT_THAT(keys[0].parentColumns, ElementsAre("id"));
    EXPECT_THAT(keys[1].columns, ElementsAre("z", "y"));
    EXPECT_EQ(keys[1].parentTable, "p");
    EXPECT_THAT(keys[1].parentColumns, ElementsAre("b", "a"));
}

TEST(SchemaReader, FillsInTheParentsKeyWhereAForeignKeyNamesNoColumn) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE p (a INT, b INT, PRIMARY KEY (b, a));"
        "CREATE TABLE t (x INT, y INT, q INT REFERENCES one, FOREIGN KEY (x, y) REFERENCES p);"
        "CREATE TABLE one (id INTEGER PRIMARY KEY)");
    const auto& keys = findTable(structure, "t").foreignKeys;
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_THAT(keys[0].parentColumns, ElementsAre("id"));
    EXPECT_THAT(keys[1].columns, ElementsAre("x", "y"));
    EXPECT_THAT(keys[1].parentColumns, ElementsAre("b", "a"));
}

TEST(SchemaReader, LeavesOutAShorthandKeyThatLeadsNowhere) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE p (a INT, b INT, PRIMARY KEY (a, b)); CREATE TABLE keyless (a);"
        "CREATE TABLE t (x INT REFERENCES p, y INT REFERENCES gone, z INT REFERENCES keyless, w INT REFERENCES gone "
        "(id))");
    const auto& keys = findTable(structure, "t").foreignKeys;
    ASSERT_EQ(keys.size(), 1U);
    EXPECT_THAT(keys[0].columns, ElementsAre("w"));
    EXPECT_THAT(structure.warnings,
                ElementsAre("4 foreign keys lead to a table, key or column that does not exist: t (x) to p, t (y) to "
                            "gone, t (z) to keyless, t (w) to gone"));
}

TEST(SchemaReader, WarnsOfAForeignKeyToAColumnThatDoesNotExist) {
    const DatabaseStructure structure =
        readScript("CREATE TABLE p (a INT PRIMARY KEY); CREATE TABLE t (x INT REFERENCES P (b), y REFERENCES P (A))");
    EXPECT_THAT(structure.warnings, ElementsAre(HasSubstr("t (x) to P")));
    EXPECT_EQ(findTable(structure, "t").foreignKeys.size(), 2U);
}

TEST(SchemaReader, LeavesOutViewsThatMultiplyEachOther) {
    std::string script = "CREATE TABLE v0 (a, b);";
    for (int i = 1; i <= 25; ++i) {
        const std::string former = "v" + std::to_string(i - 1);
        script += "CREATE VIEW v" + std::to_string(i) + " AS SELECT x.a, y.b FROM " + former + " x, " + former + " y;";
    }
    const DatabaseStructure structure = readScript(script);
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables), ElementsAre("v0"));
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).views), testing::Contains("v10"));
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).views), testing::Not(testing::Contains("v25")));
    EXPECT_THAT(structure.warnings, testing::Contains(HasSubstr("is left out: out of memory")));
}

TEST(SchemaReader, ReadsTheDetailOnRequest) {
    const TestFolder folder;
    const host::SqliteDatabase database(folder.makeDatabase(
        "a.db",
        "CREATE TABLE t (a INTEGER PRIMARY KEY, b TEXT NOT NULL DEFAULT 'x', c UNIQUE); CREATE INDEX i ON t (b, c);"
        "CREATE UNIQUE INDEX u ON t (lower(b)) WHERE a > 1"));
    const DatabaseStructure structure = host::readSqliteStructure(database, StructureDetail::Full);
    const RelationDescription& table = findTable(structure, "t");
    EXPECT_FALSE(table.columns[1].isNullable);
    EXPECT_EQ(table.columns[1].defaultText, "'x'");
    EXPECT_TRUE(table.columns[2].isNullable);
    EXPECT_THAT(table.indexes, ElementsAre("UNIQUE (c)", "INDEX (b, c)", "UNIQUE (expression) of some rows"));
    EXPECT_THAT(findTable(host::readSqliteStructure(database, StructureDetail::Keys), "t").indexes, IsEmpty());
}

TEST(SchemaReader, ReadsAForeignKeyToItsOwnTable) {
    const DatabaseStructure structure = readScript("CREATE TABLE t (id INTEGER PRIMARY KEY, up INT REFERENCES t)");
    EXPECT_THAT(findTable(structure, "t").foreignKeys.at(0).parentColumns, ElementsAre("id"));
}

TEST(SchemaReader, ReadsTheColumnsOfAView) {
    const DatabaseStructure structure =
        readScript("CREATE TABLE t (a INTEGER, b TEXT); CREATE VIEW v (x, y, z) AS SELECT a, b, a + 1 FROM t");
    EXPECT_THAT(listColumns(structure.catalogs.at(0).schemas.at(0).views.at(0)),
                ElementsAre("x:INTEGER", "y:TEXT", "z:ANY"));
}

TEST(SchemaReader, LeavesOutTheEnginesOwnTables) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, a UNIQUE); CREATE INDEX i ON t (a);"
        "INSERT INTO t (a) VALUES (1); ANALYZE; CREATE TABLE sqlitelike (a)");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables), ElementsAre("t", "sqlitelike"));
}

TEST(SchemaReader, ReadsAVirtualTableWithoutItsShadowTables) {
    const DatabaseStructure structure = readScript(
        "CREATE VIRTUAL TABLE notes USING fts5 (title, body); CREATE VIRTUAL TABLE boxes USING rtree (id, x0, x1)");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables), ElementsAre("notes", "boxes"));
    EXPECT_THAT(listColumns(findTable(structure, "notes")), ElementsAre("title:ANY", "body:ANY"));
    EXPECT_THAT(structure.warnings, IsEmpty());
}

TEST(SchemaReader, LeavesOutABrokenViewWithAWarning) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE gone (a); CREATE TABLE t (a); CREATE VIEW v AS SELECT a FROM gone; PRAGMA legacy_alter_table = 1;"
        "DROP TABLE gone");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables), ElementsAre("t"));
    EXPECT_THAT(structure.catalogs.at(0).schemas.at(0).views, IsEmpty());
    ASSERT_EQ(structure.warnings.size(), 1U);
    EXPECT_THAT(structure.warnings[0], HasSubstr("'v' is left out: no such table: main.gone"));
}

TEST(SchemaReader, ReadsNamesThatNeedQuoting) {
    const DatabaseStructure structure = readScript(
        "CREATE TABLE \"a \"\"b\"\" 'c' `d` [e];--\" (\"x y\" \"long type (1)\", \"select\" INT PRIMARY KEY);"
        "CREATE TABLE \"\" (a); CREATE TABLE t (f REFERENCES \"a \"\"b\"\" 'c' `d` [e];--\")");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas.at(0).tables),
                ElementsAre("a \"b\" 'c' `d` [e];--", "", "t"));
    EXPECT_THAT(listColumns(structure.catalogs.at(0).schemas.at(0).tables[0]),
                ElementsAre("x y:long type (1)", "select:INT"));
    EXPECT_THAT(findTable(structure, "t").foreignKeys.at(0).parentColumns, ElementsAre("select"));
}

TEST(SchemaReader, ReadsAttachedDatabasesUnderTheirNames) {
    const TestFolder folder;
    const host::SqliteDatabase database(folder.makeDatabase("a.db", "CREATE TABLE t (a)"));
    const std::string other =
        folder.makeDatabase("b.db", "CREATE TABLE p (id INTEGER PRIMARY KEY); CREATE TABLE t (b INT REFERENCES p)");
    sqlite3_limit(database.obtainHandle(), SQLITE_LIMIT_ATTACHED, 1);
    ASSERT_EQ(sqlite3_exec(database.obtainHandle(), ("ATTACH '" + other + "' AS \"my \"\"other\"").c_str(), nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    const DatabaseStructure structure = host::readSqliteStructure(database, StructureDetail::Keys);
    ASSERT_EQ(structure.catalogs.at(0).schemas.size(), 2U);
    EXPECT_EQ(structure.catalogs.at(0).schemas[1].name, "my \"other");
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas[0].tables), ElementsAre("t"));
    EXPECT_THAT(listNames(structure.catalogs.at(0).schemas[1].tables), ElementsAre("p", "t"));
    EXPECT_THAT(listColumns(structure.catalogs.at(0).schemas[1].tables[1]), ElementsAre("b:INT"));

    const CMVariantList variant = host::makeStructureVariant(structure);
    const CMVariantMap& schema = variant.at(0).mapValue().at("schemas").listValue().at(1).mapValue();
    EXPECT_EQ(schema.at("schema_name").stringValue(), "my \"other");
    const CMVariantMap& key = schema.at("tables").listValue().at(1).mapValue().at("fkeys").listValue().at(0).mapValue();
    EXPECT_EQ(key.at("ref_schema").stringValue(), "my \"other");
}

TEST(SchemaReader, DescribesASingleSchemaWithoutAName) {
    const CMVariantList variant =
        host::makeStructureVariant(readScript("CREATE TABLE p (a INT, b INT, PRIMARY KEY (a, b)); CREATE TABLE t (x "
                                              "INT, y INT, FOREIGN KEY (x, y) REFERENCES "
                                              "p); CREATE VIEW v AS SELECT a FROM p"));
    EXPECT_EQ(cfCreateCOJsonFromCMVariant(variant).obtainJsonString(),
              R"([{"schemas":[{"tables":[)"
              R"({"fields":[{"name":"a","type":"INT"},{"name":"b","type":"INT"}],"name":"p","pkeys":["a","b"]},)"
              R"({"fields":[{"name":"x","type":"INT"},{"name":"y","type":"INT"}],)"
              R"("fkeys":[{"fields":["x","y"],"ref_fields":["a","b"],"ref_table":"p"}],"name":"t"}],)"
              R"("views":[{"fields":[{"name":"a","type":"INT"}],"name":"v"}]}]}])");
}

/// The engine's steps, in hundreds, that reading a database of so many tables takes.
long countSteps(int tables) {
    const TestFolder folder;
    std::string script = "BEGIN;";
    for (int i = 0; i < tables; ++i) {
        script += "CREATE TABLE t" + std::to_string(i) + " (id INTEGER PRIMARY KEY, up INT REFERENCES t0);";
    }
    const host::SqliteDatabase database(folder.makeDatabase("a.db", script + "COMMIT;"));
    long count = 0;
    const auto countUp = [](void* steps) {
        ++*static_cast<long*>(steps);
        return 0;
    };
    sqlite3_progress_handler(database.obtainHandle(), 100, countUp, &count);
    EXPECT_EQ(host::countRelations(host::readSqliteStructure(database, StructureDetail::Keys)),
              static_cast<std::size_t>(tables));
    return count;
}

TEST(SchemaReader, TakesTimeInProportionToTheNumberOfTables) {
    EXPECT_LT(countSteps(800), 6 * countSteps(200));
}

TEST(SchemaReader, ReadsAnEmptyDatabase) {
    const DatabaseStructure structure = readScript("");
    EXPECT_EQ(host::countRelations(structure), 0U);
    EXPECT_EQ(structure.catalogs.at(0).schemas.size(), 1U);
}

}  // namespace
