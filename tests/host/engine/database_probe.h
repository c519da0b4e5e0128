#ifndef TESTS_HOST_DATABASE_PROBE_H
#define TESTS_HOST_DATABASE_PROBE_H

#include <string>
#include <vector>

#include "engine/database.h"
#include "host_error.h"

/// What running statements came to.
struct ProbeOutcome {
    host::ExitCode code = host::ExitCode::Done;
    std::string error;
    std::vector<host::ResultTable> tables;
    std::size_t count = 0;

    /// The first value of the first row.
    [[nodiscard]] std::string obtainValue() const { return tables.at(0).rows.at(0).at(0).bytes; }
};

/// Runs statements through the program's own process.
[[nodiscard]] ProbeOutcome probe(const std::string& source, const std::string& script,
                                 const host::QueryLimits& limits = {});

/// Reads the structure; a failure gives its text as the only warning.
[[nodiscard]] host::DatabaseStructure probeStructure(const std::string& source,
                                                     host::StructureDetail detail = host::StructureDetail::Keys);

/// A structure as lines, for comparing: "schema.table (column type, ...) PK (...) FK (...) -> schema.table (...)".
[[nodiscard]] std::vector<std::string> describeStructure(const host::DatabaseStructure& structure);

#endif
