#include "engine_subject.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "mariadb/maria_connection.h"
#include "mariadb/maria_schema_reader.h"
#include "mariadb/mariadb_server.h"
#include "postgresql/pg_connection.h"
#include "postgresql/pg_schema_reader.h"
#include "postgresql/postgresql_server.h"
#include "test_folder.h"

namespace {

class SqliteSubject : public EngineSubject {
public:
    [[nodiscard]] std::string obtainName() const override { return "SQLite"; }
    [[nodiscard]] std::string obtainSource() const override { return m_folder.name("tables.db"); }

    void makeTables(std::size_t count) override {
        std::remove(obtainSource().c_str());
        std::string script = "BEGIN;";
        for (std::size_t i = 0; i < count; ++i) {
            script += makeTableStatement(i) + ";";
        }
        (void)m_folder.makeDatabase("tables.db", script + "COMMIT;");
    }

    void askCatalogue() override {
        sqlite3* raw = nullptr;
        sqlite3_open_v2(obtainSource().c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
        const std::unique_ptr<sqlite3, int (*)(sqlite3*)> handle(raw, &sqlite3_close);
        const Statement tables = prepare(raw, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY rowid");
        const Statement columns = prepare(raw, "SELECT * FROM pragma_table_xinfo(?1, 'main') ORDER BY cid");
        const Statement keys = prepare(raw, "SELECT * FROM pragma_foreign_key_list(?1, 'main') ORDER BY id DESC, seq");
        while (sqlite3_step(tables.get()) == SQLITE_ROW) {
            for (const Statement* statement : {&columns, &keys}) {
                sqlite3_reset(statement->get());
                sqlite3_bind_value(statement->get(), 1, sqlite3_column_value(tables.get(), 0));
                while (sqlite3_step(statement->get()) == SQLITE_ROW) {
                    sqlite3_column_text(statement->get(), 1);
                }
            }
        }
    }

    [[nodiscard]] std::string makeRowQuery(std::size_t rows) const override {
        return "WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(rows) +
               ") SELECT i, i * 1.5, 'text of row ' || i, NULL, 'x' FROM n";
    }

private:
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    static Statement prepare(sqlite3* handle, const char* sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(handle));
        }
        return {statement, &sqlite3_finalize};
    }

    TestFolder m_folder;
};

class PostgresqlSubject : public EngineSubject {
public:
    [[nodiscard]] std::string obtainName() const override { return "PostgreSQL"; }
    [[nodiscard]] std::string obtainSource() const override { return m_server.makeUrl("reader", "tables"); }

    void makeTables(std::size_t count) override {
        constexpr std::size_t kTablesATime = 500;  // a transaction keeps a lock for each
        m_server.execute("postgres", "DROP DATABASE IF EXISTS tables");
        m_server.execute("postgres", "CREATE DATABASE tables");
        for (std::size_t i = 0; i < count;) {
            std::string script;
            for (const std::size_t end = std::min(count, i + kTablesATime); i < end; ++i) {
                script += makeTableStatement(i) + ";";
            }
            m_server.execute("tables", script);
        }
        m_server.execute("tables", "VACUUM ANALYZE");
    }

    void askCatalogue() override {
        const host::PgConnection connection(obtainSource());
        for (const std::string& query : host::listPgStructureQueries(host::StructureDetail::Keys)) {
            connection.execute(query);
        }
    }

    [[nodiscard]] std::string makeRowQuery(std::size_t rows) const override {
        return "SELECT i, i * 1.5, 'text of row ' || i, NULL, 'x' FROM generate_series(1, " + std::to_string(rows) +
               ") AS n (i)";
    }

private:
    PostgresqlServer m_server;
};

class MariadbSubject : public EngineSubject {
public:
    [[nodiscard]] std::string obtainName() const override { return "MariaDB"; }
    [[nodiscard]] std::string obtainSource() const override { return m_server.makeUrl("reader", "tables"); }

    void makeTables(std::size_t count) override {
        m_server.execute("", "DROP DATABASE IF EXISTS tables");
        m_server.execute("", "CREATE DATABASE tables");
        std::string script;
        for (std::size_t i = 0; i < count; ++i) {
            script += makeTableStatement(i) + ";";
        }
        m_server.executeScript("tables", script);
    }

    void askCatalogue() override {
        const host::MariaConnection connection(obtainSource());
        for (const std::string& query : host::listMariaStructureQueries(connection)) {
            connection.execute(query);
        }
    }

    [[nodiscard]] std::string makeRowQuery(std::size_t rows) const override {
        return "SELECT seq, seq * 1.5, CONCAT('text of row ', seq), NULL, 'x' FROM seq_1_to_" + std::to_string(rows);
    }

private:
    MariadbServer m_server;
};

template <typename Subject>
std::unique_ptr<EngineSubject> makeSubject() {
    return std::make_unique<Subject>();
}

}  // namespace

std::vector<std::function<std::unique_ptr<EngineSubject>()>> listEngineSubjects() {
    return {&makeSubject<SqliteSubject>, &makeSubject<PostgresqlSubject>, &makeSubject<MariadbSubject>};
}

std::string makeTableStatement(std::size_t number) {
    const std::string name = "table_" + std::to_string(number);
    const std::string parent = "table_" + std::to_string(number == 0 ? 0 : number - 1);
    return "CREATE TABLE " + name +
           " (id int NOT NULL, parent_id int, name varchar(255), note text, amount decimal(10,2), made timestamp, "
           "state smallint, size bigint, PRIMARY KEY (id), FOREIGN KEY (parent_id) REFERENCES " +
           parent + " (id))";
}
