#include "sqlite/query_guard.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace host {
namespace {

/// Steps of the engine's virtual machine between two checks of the clock: well under a millisecond.
constexpr int kStepsBetweenChecks = 1000;

bool isSameName(const char* name, std::string_view other) {
    return name != nullptr && std::string_view(name).size() == other.size() &&
           strncasecmp(name, other.data(), other.size()) == 0;
}

template <std::size_t count>
bool isOneOf(const char* name, const std::array<std::string_view, count>& names) {
    return std::any_of(names.begin(), names.end(), [&](std::string_view other) { return isSameName(name, other); });
}

/// Pragmas whose argument selects what they report.
constexpr std::array<std::string_view, 15> kTellingPragmas{
    "table_info",    "table_xinfo",      "table_list",        "index_list",    "index_info",
    "index_xinfo",   "foreign_key_list", "foreign_key_check", "database_list", "collation_list",
    "function_list", "module_list",      "pragma_list",       "quick_check",   "integrity_check"};

/// Pragmas that report something without an argument and change something with one.
constexpr std::array<std::string_view, 9> kTellingBarePragmas{"user_version",   "schema_version",  "application_id",
                                                              "encoding",       "page_count",      "page_size",
                                                              "freelist_count", "compile_options", "data_version"};

/// Functions that act outside the database, if a build of the engine has them.
constexpr std::array<std::string_view, 5> kRefusedFunctions{"load_extension", "fts3_tokenizer", "readfile", "writefile",
                                                            "edit"};

bool isSchemaTable(const char* name) {
    return isSameName(name, "sqlite_master") || isSameName(name, "sqlite_temp_master");
}

bool isTellingPragma(const char* name, const char* argument) {
    return isOneOf(name, kTellingPragmas) || (argument == nullptr && isOneOf(name, kTellingBarePragmas));
}

struct ActionName {
    int action;
    const char* name;
};

constexpr std::array<ActionName, 17> kActionNames{{{SQLITE_INSERT, "INSERT into"},
                                                   {SQLITE_UPDATE, "UPDATE of"},
                                                   {SQLITE_DELETE, "DELETE from"},
                                                   {SQLITE_ATTACH, "ATTACH of"},
                                                   {SQLITE_DETACH, "DETACH of"},
                                                   {SQLITE_PRAGMA, "PRAGMA"},
                                                   {SQLITE_FUNCTION, "the function"},
                                                   {SQLITE_TRANSACTION, "the transaction statement"},
                                                   {SQLITE_SAVEPOINT, "the savepoint statement"},
                                                   {SQLITE_ALTER_TABLE, "ALTER TABLE in"},
                                                   {SQLITE_REINDEX, "REINDEX of"},
                                                   {SQLITE_ANALYZE, "ANALYZE of"},
                                                   {SQLITE_DROP_TABLE, "DROP TABLE"},
                                                   {SQLITE_DROP_VIEW, "DROP VIEW"},
                                                   {SQLITE_DROP_INDEX, "DROP INDEX"},
                                                   {SQLITE_CREATE_VTABLE, "CREATE VIRTUAL TABLE"},
                                                   {SQLITE_DROP_VTABLE, "DROP TABLE"}}};

std::string describeAction(int action, const char* first, const char* second) {
    if ((action == SQLITE_INSERT || action == SQLITE_DELETE) && isSchemaTable(first)) {
        return "a change of the schema";
    }
    const auto known = std::find_if(kActionNames.begin(), kActionNames.end(),
                                    [&](const ActionName& candidate) { return candidate.action == action; });
    const std::string name = known != kActionNames.end() ? known->name : "a statement that creates or changes";
    const char* object = action == SQLITE_FUNCTION ? second : first;
    return object == nullptr || *object == '\0' ? name : name + " '" + object + "'";
}

}  // namespace

QueryGuard::QueryGuard(sqlite3* handle, std::chrono::milliseconds timeLimit)
    : m_handle(handle), m_deadline(std::chrono::steady_clock::now() + timeLimit) {
    sqlite3_set_authorizer(m_handle, &QueryGuard::authorize, this);
    sqlite3_progress_handler(m_handle, kStepsBetweenChecks, &QueryGuard::checkProgress, this);
}

QueryGuard::~QueryGuard() {
    sqlite3_set_authorizer(m_handle, nullptr, nullptr);
    sqlite3_progress_handler(m_handle, 0, nullptr, nullptr);
}

int QueryGuard::authorize(void* guard, int action, const char* first, const char* second, const char* /*schema*/,
                          const char* /*trigger*/) {
    auto& self = *static_cast<QueryGuard*>(guard);
    if (self.allow(action, first, second)) {
        return SQLITE_OK;
    }
    // The first refusal names the statement's real action; the later ones are its consequences.
    if (self.m_refusal.empty()) {
        self.m_refusal = describeAction(action, first, second);
    }
    return SQLITE_DENY;
}

bool QueryGuard::allow(int action, const char* first, const char* second) {
    switch (action) {
        case SQLITE_SELECT:
        case SQLITE_READ:
        case SQLITE_RECURSIVE:
            return true;
        case SQLITE_FUNCTION:
            return !isOneOf(second, kRefusedFunctions);
        case SQLITE_PRAGMA:
            return isTellingPragma(first, second);
        case SQLITE_UPDATE:
            // The engine itself asks this when it connects a virtual table, including the table-valued pragmas. If a
            // statement tries to do it, the engine refuses.
            return isSameName(first, "sqlite_master");
        default:
            return false;
    }
}

int QueryGuard::checkProgress(void* guard) {
    auto& self = *static_cast<QueryGuard*>(guard);
    self.m_isTimeOver = std::chrono::steady_clock::now() >= self.m_deadline;
    return self.m_isTimeOver ? 1 : 0;
}

}  // namespace host
