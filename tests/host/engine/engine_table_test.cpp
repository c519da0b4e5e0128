#include "engine/engine_table.h"

#include <gmock/gmock.h>

#include "host_error.h"

namespace {

using testing::HasSubstr;

TEST(EngineTable, FindsTheEngineByTheScheme) {
    EXPECT_EQ(host::findEngine("shop.db").name, "SQLite");
    EXPECT_EQ(host::findEngine("/data/a b/shop").name, "SQLite");
    EXPECT_EQ(host::findEngine("postgresql://u@h/n").name, "PostgreSQL");
    EXPECT_EQ(host::findEngine("postgres://u@h/n").name, "PostgreSQL");
    EXPECT_EQ(host::findEngine("mysql://u@h/n").name, "MySQL");
    EXPECT_EQ(host::findEngine("mariadb://u@h/n").name, "MariaDB");
}

TEST(EngineTable, NamesTheSchemesWhereNoneFits) {
    try {
        (void)host::findEngine("oracle://u:secret@h/n");
        FAIL() << "no engine has the scheme";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
        EXPECT_THAT(error.what(), HasSubstr("postgresql://, postgres://, mysql://, mariadb://"));
        EXPECT_THAT(error.what(), testing::Not(HasSubstr("secret")));
    }
}

TEST(EngineTable, KnowsEveryLibraryAndMark) {
    EXPECT_THAT(host::describeLibraries(), testing::MatchesRegex("SQLite 3\\..*, libpq 1.*, libmariadb 3\\.[^,]*"));
    EXPECT_THAT(host::listBlockMarks(), testing::IsSupersetOf({"sqlite", "postgresql", "mysql", "mariadb"}));
}

}  // namespace
