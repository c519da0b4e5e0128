#include "sqlite/sqlite_engine.h"

#include "sqlite/query_runner.h"
#include "sqlite/schema_reader.h"
#include "sqlite/sqlite_database.h"

namespace host {
namespace {

class SqliteConnection : public EngineConnection {
public:
    explicit SqliteConnection(const std::string& fileName) : m_database(fileName) {}

    [[nodiscard]] std::string obtainVersion() override { return sqlite3_libversion(); }

    [[nodiscard]] DatabaseStructure readStructure(StructureDetail detail) override {
        DatabaseStructure structure = readSqliteStructure(m_database, detail);
        m_database.checkUnchanged();
        return structure;
    }

    std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver) override {
        const std::size_t count = QueryRunner(m_database, limits).run(script, receiver);
        m_database.checkUnchanged();
        return count;
    }

private:
    SqliteDatabase m_database;
};

}  // namespace

std::unique_ptr<EngineConnection> openSqlite(const std::string& fileName) {
    return std::make_unique<SqliteConnection>(fileName);
}

std::string describeSqliteLibrary() {
    return "SQLite " + std::string(sqlite3_libversion());
}

}  // namespace host
