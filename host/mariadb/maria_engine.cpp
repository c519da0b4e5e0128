#include "mariadb/maria_engine.h"

#include "mariadb/maria_connection.h"
#include "mariadb/maria_query_runner.h"
#include "mariadb/maria_schema_reader.h"

namespace host {
namespace {

class MariaEngineConnection : public EngineConnection {
public:
    explicit MariaEngineConnection(const std::string& url) : m_connection(url) {}

    [[nodiscard]] std::string obtainVersion() override { return m_connection.obtainVersion(); }

    [[nodiscard]] DatabaseStructure readStructure(StructureDetail detail) override {
        return readMariaStructure(m_connection, detail);
    }

    std::size_t run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver) override {
        return runMariaScript(m_connection, script, limits, receiver);
    }

private:
    MariaConnection m_connection;
};

}  // namespace

std::unique_ptr<EngineConnection> openMaria(const std::string& url) {
    return std::make_unique<MariaEngineConnection>(url);
}

std::string describeMariaLibrary() {
    return "libmariadb " + std::string(mysql_get_client_info());
}

}  // namespace host
