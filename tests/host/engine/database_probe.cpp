#include "engine/database_probe.h"

#include "engine/worker_process.h"

namespace {

std::string join(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

}  // namespace

ProbeOutcome probe(const std::string& source, const std::string& script, const host::QueryLimits& limits) {
    host::WorkerProcess::setProgram(KAI_PROGRAM);
    ProbeOutcome outcome;
    host::ResultCollector results([&](const host::ResultTable& table) { outcome.tables.push_back(table); });
    try {
        outcome.count = host::Database(source).run(script, limits, results, {});
    } catch (const host::HostError& error) {
        outcome.code = error.obtainCode();
        outcome.error = error.what();
    }
    return outcome;
}

host::DatabaseStructure probeStructure(const std::string& source, host::StructureDetail detail) {
    host::WorkerProcess::setProgram(KAI_PROGRAM);
    try {
        return host::Database(source).readStructure(detail, {});
    } catch (const host::HostError& error) {
        host::DatabaseStructure failed;
        failed.warnings.emplace_back(error.what());
        return failed;
    }
}

std::vector<std::string> describeStructure(const host::DatabaseStructure& structure) {
    std::vector<std::string> lines;
    host::visitRelations(structure, [&](const host::SchemaDescription& schema,
                                        const host::RelationDescription& relation) {
        std::vector<std::string> columns;
        for (const host::ColumnDescription& column : relation.columns) {
            columns.push_back(column.name + " " + column.type);
        }
        std::string line = schema.name + "." + relation.name + " (" + join(columns) + ")";
        if (!relation.primaryKey.empty()) {
            line += " PK (" + join(relation.primaryKey) + ")";
        }
        for (const host::ForeignKeyDescription& key : relation.foreignKeys) {
            line += " FK (" + join(key.columns) + ") -> " + (key.parentSchema.empty() ? "" : key.parentSchema + ".") +
                    key.parentTable + " (" + join(key.parentColumns) + ")";
        }
        lines.push_back(line);
    });
    return lines;
}
