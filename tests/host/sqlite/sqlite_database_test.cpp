#include "sqlite/sqlite_database.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host_error.h"
#include "test_folder.h"

namespace {

using host::SqliteDatabase;
using testing::HasSubstr;

std::string describeOpening(const std::string& fileName) {
    try {
        const SqliteDatabase database(fileName);
        return "opened";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Database);
        return error.what();
    }
}

int execute(const SqliteDatabase& database, const std::string& sql) {
    return sqlite3_exec(database.obtainHandle(), sql.c_str(), nullptr, nullptr, nullptr) & 0xFF;
}

TEST(SqliteDatabase, OpensADatabase) {
    const TestFolder folder;
    EXPECT_EQ(describeOpening(folder.makeDatabase("a.db", "CREATE TABLE t (a)")), "opened");
}

TEST(SqliteDatabase, OpensAnEmptyFileAsAnEmptyDatabase) {
    const TestFolder folder;
    EXPECT_EQ(describeOpening(folder.write("empty.db", "")), "opened");
}

TEST(SqliteDatabase, SaysThatTheFileIsMissingAndDoesNotMakeIt) {
    const TestFolder folder;
    EXPECT_THAT(describeOpening(folder.name("none.db")), HasSubstr("there is no such file"));
    EXPECT_TRUE(folder.list().empty());
    EXPECT_THAT(describeOpening(""), HasSubstr("there is no such file"));
}

TEST(SqliteDatabase, SaysThatItIsADirectory) {
    const TestFolder folder;
    EXPECT_THAT(describeOpening(folder.name("")), HasSubstr("it is a directory"));
}

TEST(SqliteDatabase, SaysThatItIsNoDatabase) {
    const TestFolder folder;
    EXPECT_THAT(describeOpening(folder.write("notes.txt", "Dear diary, nothing of note.")),
                HasSubstr("it is not a SQLite database"));
}

TEST(SqliteDatabase, SaysThatItIsDamaged) {
    const TestFolder folder;
    const std::string fileName = folder.makeDatabase("a.db", "CREATE TABLE t (a)");
    std::string content = readFile(fileName);
    content.replace(100, 2000, 2000, '\xee');
    EXPECT_THAT(describeOpening(folder.write("b.db", content)), HasSubstr("it is damaged"));
}

TEST(SqliteDatabase, SaysThatItIsLocked) {
    const TestFolder folder;
    const std::string fileName = folder.makeDatabase("a.db", "CREATE TABLE t (a)");
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(fileName.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_THAT(describeOpening(fileName), HasSubstr("it is locked by another program"));
    sqlite3_close(writer);
    EXPECT_EQ(describeOpening(fileName), "opened");
}

TEST(SqliteDatabase, NeverReadsANameAsAUri) {
    const TestFolder folder;
    const std::string fileName = folder.makeDatabase("a.db", "CREATE TABLE t (a)");
    // Debian's library would take this one as a name with options.
    EXPECT_THAT(describeOpening("file:" + fileName), HasSubstr("there is no such file"));
    EXPECT_THAT(describeOpening(":memory:"), HasSubstr("there is no such file"));
    EXPECT_THAT(describeOpening("file::memory:"), HasSubstr("there is no such file"));
}

TEST(SqliteDatabase, OpensAFileWhoseNameLooksLikeAUri) {
    const TestFolder folder;
    const std::string uriName = folder.name("file:x?mode=memory");
    ASSERT_EQ(rename(folder.makeDatabase("a.db", "CREATE TABLE here (a)").c_str(), uriName.c_str()), 0);
    const SqliteDatabase database(uriName);
    EXPECT_EQ(execute(database, "SELECT * FROM here"), SQLITE_OK);
}

TEST(SqliteDatabase, OpensARelativeNameThatLooksLikeAUri) {
    const TestFolder folder;
    ASSERT_EQ(rename(folder.makeDatabase("a.db", "CREATE TABLE here (a)").c_str(), folder.name("file:x").c_str()), 0);
    const std::string former = std::filesystem::current_path();
    std::filesystem::current_path(folder.name(""));
    EXPECT_EQ(describeOpening("file:x"), "opened");
    std::filesystem::current_path(former);
}

TEST(SqliteDatabase, RefusesToWriteByItself) {
    const TestFolder folder;
    const std::string fileName = folder.makeDatabase("a.db", "CREATE TABLE t (a); INSERT INTO t VALUES (1)");
    const std::string before = readFile(fileName);
    {
        const SqliteDatabase database(fileName);
        EXPECT_EQ(execute(database, "INSERT INTO t VALUES (2)"), SQLITE_READONLY);
        EXPECT_EQ(execute(database, "DROP TABLE t"), SQLITE_READONLY);
        EXPECT_EQ(execute(database, "ATTACH '" + folder.name("other.db") + "' AS o"), SQLITE_ERROR);
        EXPECT_EQ(execute(database, "VACUUM INTO '" + folder.name("copy.db") + "'"), SQLITE_ERROR);
        EXPECT_NE(execute(database, "SELECT load_extension('x')"), SQLITE_OK);
        EXPECT_NE(execute(database, "SELECT fts3_tokenizer('x', x'0000000000000000')"), SQLITE_OK);
    }
    EXPECT_EQ(readFile(fileName), before);
    EXPECT_EQ(folder.list(), std::vector<std::string>{"a.db"});
}

TEST(SqliteDatabase, ReadsADatabaseInWriteAheadMode) {
    const TestFolder folder;
    const std::string fileName =
        folder.makeDatabase("a.db", "PRAGMA journal_mode = WAL; CREATE TABLE t (a); INSERT INTO t VALUES (1)");
    const std::string before = readFile(fileName);
    {
        const SqliteDatabase database(fileName);
        EXPECT_EQ(execute(database, "SELECT * FROM t"), SQLITE_OK);
    }
    EXPECT_EQ(readFile(fileName), before);
}

/// Makes a database in write-ahead mode; `use` runs while a program has it open, its log full.
template <typename Use>
void useWriteAheadDatabase(const std::string& fileName, const Use& use) {
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(fileName.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(writer, "PRAGMA journal_mode = WAL; CREATE TABLE IF NOT EXISTS t (a); INSERT INTO t VALUES (1)",
                     nullptr, nullptr, nullptr),
        SQLITE_OK);
    use(writer);
    sqlite3_close(writer);
}

TEST(SqliteDatabase, LeavesNoFilesBesideADatabaseInWriteAheadMode) {
    const TestFolder folder;
    useWriteAheadDatabase(folder.name("a.db"), [](sqlite3*) {});
    ASSERT_EQ(folder.list(), std::vector<std::string>{"a.db"});
    {
        const SqliteDatabase database(folder.name("a.db"));
        EXPECT_EQ(execute(database, "SELECT * FROM t"), SQLITE_OK);
        EXPECT_EQ(execute(database, "INSERT INTO t VALUES (2)"), SQLITE_READONLY);
        EXPECT_NO_THROW(database.checkUnchanged());
    }
    EXPECT_EQ(folder.list(), std::vector<std::string>{"a.db"});
}

TEST(SqliteDatabase, ReadsTheLogOfAProgramThatHasTheDatabaseOpen) {
    const TestFolder folder;
    useWriteAheadDatabase(folder.name("a.db"), [&](sqlite3* writer) {
        {
            const SqliteDatabase database(folder.name("a.db"));
            EXPECT_EQ(execute(database, "SELECT * FROM t"), SQLITE_OK);
            EXPECT_EQ(sqlite3_exec(writer, "INSERT INTO t VALUES (2)", nullptr, nullptr, nullptr), SQLITE_OK);
            EXPECT_NO_THROW(database.checkUnchanged());
        }
        EXPECT_EQ(folder.list(), (std::vector<std::string>{"a.db", "a.db-shm", "a.db-wal"}));
    });
}

TEST(SqliteDatabase, ReadsALogThatACrashLeftAndAddsNoFile) {
    const TestFolder folder;
    std::string log;
    std::string content;
    useWriteAheadDatabase(folder.name("a.db"), [&](sqlite3*) {
        log = readFile(folder.name("a.db-wal"));
        content = readFile(folder.name("a.db"));
    });
    const std::string fileName = folder.write("b.db", content);
    (void)folder.write("b.db-wal", log);
    {
        const SqliteDatabase database(fileName);
        EXPECT_EQ(execute(database, "SELECT * FROM t"), SQLITE_OK);
    }
    EXPECT_EQ(folder.list(), (std::vector<std::string>{"a.db", "b.db", "b.db-wal"}));
    EXPECT_EQ(readFile(folder.name("b.db-wal")), log);
}

TEST(SqliteDatabase, SaysThatAnotherProgramChangedTheFileMeanwhile) {
    const TestFolder folder;
    useWriteAheadDatabase(folder.name("a.db"), [](sqlite3*) {});
    const SqliteDatabase database(folder.name("a.db"));
    useWriteAheadDatabase(folder.name("a.db"), [&](sqlite3* writer) {
        ASSERT_EQ(sqlite3_exec(writer, "INSERT INTO t VALUES (2)", nullptr, nullptr, nullptr), SQLITE_OK);
    });
    try {
        database.checkUnchanged();
        FAIL() << "the change was not noticed";
    } catch (const host::HostError& error) {
        EXPECT_THAT(error.what(), HasSubstr("was changed by another program while it was read"));
    }
}

TEST(SqliteDatabase, RefusesAPipeWithoutWaitingForAWriter) {
    const TestFolder folder;
    ASSERT_EQ(mkfifo(folder.name("pipe").c_str(), 0600), 0);
    EXPECT_THAT(describeOpening(folder.name("pipe")), HasSubstr("it is a pipe, a socket or a device"));
    EXPECT_THAT(describeOpening("/dev/null"), HasSubstr("it is a pipe, a socket or a device"));
}

TEST(SqliteDatabase, SaysWhatIsWrongWithAFileThatCannotBeRead) {
    EXPECT_THAT(describeOpening("/proc/self/mem"), HasSubstr("it cannot be read as a file; name a SQLite file"));
}

TEST(SqliteDatabase, QuotesIdentifiers) {
    EXPECT_EQ(host::quoteIdentifier("a b"), "\"a b\"");
    EXPECT_EQ(host::quoteIdentifier("a\"; DROP"), "\"a\"\"; DROP\"");
}

}  // namespace
