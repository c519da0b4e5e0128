#include "postgresql/pg_engine.h"

#include "postgresql/pg_connection.h"
#include "postgresql/pg_query_runner.h"
#include "postgresql/pg_schema_reader.h"

namespace host {
namespace {

class PgEngineConnection : public EngineConnection {
public:
    explicit PgEngineConnection(const std::string& url) : m_connection(url) {}

    [[nodiscard]] std::string obtainVersion() override { return m_connection.obtainVersion(); }

    [[nodiscard]] DatabaseStructure readStructure(StructureDetail detail) override {
        return readPgStructure(m_connection, detail);
    }

    std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver) override {
        return runPgScript(m_connection, script, limits, receiver);
    }

private:
    PgConnection m_connection;
};

}  // namespace

std::unique_ptr<EngineConnection> openPostgresql(const std::string& url) {
    return std::make_unique<PgEngineConnection>(url);
}

std::string describePostgresqlLibrary() {
    const int version = PQlibVersion();
    return "libpq " + std::to_string(version / 10000) + "." + std::to_string(version % 10000);
}

}  // namespace host
