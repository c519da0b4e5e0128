#include "engine/failures.h"

#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {

void failSql(const std::string& reason) {
    throw HostError(ExitCode::SqlFailed, "the model's SQL failed: " + makeOneLine(reason));
}

void failRefused(const std::string& what) {
    throw HostError(ExitCode::SqlFailed,
                    "the model's SQL was refused: " + makeOneLine(what) + " (kai runs SQL for reading only)");
}

void failTimeout(std::chrono::milliseconds limit) {
    failSql("it ran longer than the limit of " + std::to_string(limit.count() / 1000) +
            " s; ask for a simpler statement or raise --sql-timeout");
}

}  // namespace host
