#include "conversation/atomic_file.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "host_error.h"
#include "test_folder.h"

namespace {

using testing::HasSubstr;

template <typename Action>
std::string describeFailure(Action action) {
    try {
        action();
        return "done";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.obtainCode(), host::ExitCode::Usage);
        return error.what();
    }
}

mode_t obtainMode(const std::string& fileName) {
    struct stat status {};
    stat(fileName.c_str(), &status);
    return status.st_mode & 07777;
}

TEST(AtomicFile, WritesAFileThatOnlyItsOwnerReads) {
    const TestFolder folder;
    host::replaceFileContent(folder.name("a"), "content");
    EXPECT_EQ(readFile(folder.name("a")), "content");
    EXPECT_EQ(obtainMode(folder.name("a")), 0600U);
    EXPECT_EQ(folder.list(), std::vector<std::string>{"a"});
}

TEST(AtomicFile, ReplacesTheContentAndTightensThePermissions) {
    const TestFolder folder;
    const std::string fileName = folder.write("a", "something much longer than what follows");
    chmod(fileName.c_str(), 0644);
    host::replaceFileContent(fileName, "new");
    EXPECT_EQ(readFile(fileName), "new");
    EXPECT_EQ(obtainMode(fileName), 0600U);
}

TEST(AtomicFile, FollowsALink) {
    const TestFolder folder;
    const std::string target = folder.write("target", "old");
    ASSERT_EQ(symlink(target.c_str(), folder.name("link").c_str()), 0);
    host::replaceFileContent(folder.name("link"), "new");
    EXPECT_EQ(readFile(target), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.name("link")));
}

TEST(AtomicFile, SaysThatTheDirectoryIsMissing) {
    const TestFolder folder;
    EXPECT_THAT(describeFailure([&] { host::replaceFileContent(folder.name("none/a"), "x"); }),
                HasSubstr("No such file or directory"));
    EXPECT_THAT(describeFailure([&] { host::checkFileCanBeReplaced(folder.name("none/a")); }),
                HasSubstr("No such file or directory"));
}

TEST(AtomicFile, NeverReplacesWhatIsNoRegularFile) {
    const TestFolder folder;
    const std::string pipe = folder.name("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(describeFailure([&] { host::replaceFileContent(pipe, "x"); }), HasSubstr("not a regular file"));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_THAT(describeFailure([&] { host::checkFileCanBeReplaced("/dev/null"); }), HasSubstr("not a regular file"));
    EXPECT_THAT(describeFailure([&] { host::checkFileCanBeReplaced(folder.name("none/")); }),
                HasSubstr("not the name of a file"));
    EXPECT_THAT(describeFailure([&] { host::checkFileCanBeReplaced(""); }), HasSubstr("not the name of a file"));
}

TEST(AtomicFile, LeavesNothingBehindWhenItOnlyChecks) {
    const TestFolder folder;
    host::checkFileCanBeReplaced(folder.name("a"));
    EXPECT_TRUE(folder.list().empty());
}

/// Ends the process in the middle of a write, as a kill does.
[[noreturn]] void replaceUntilKilled(const std::string& fileName) {
    const rlimit limit{1024 * 1024, 1024 * 1024};
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, SIG_DFL);
    host::replaceFileContent(fileName, std::string(4 * 1024 * 1024, 'x'));
    std::exit(0);
}

TEST(AtomicFile, LeavesNothingBehindWhenItIsKilled) {
    const TestFolder folder;
    const std::string fileName = folder.write("a", "old");
    EXPECT_EXIT(replaceUntilKilled(fileName), testing::KilledBySignal(SIGXFSZ), "");
    EXPECT_EQ(folder.list(), std::vector<std::string>{"a"});
    EXPECT_EQ(readFile(fileName), "old");
}

TEST(AtomicFile, RemovesWhatAKilledProcessLeftBesideTheFile) {
    const TestFolder folder;
    folder.write(".kai-a.new", "half");
    host::replaceFileContent(folder.name("a"), "whole");
    EXPECT_EQ(folder.list(), std::vector<std::string>{"a"});
    EXPECT_EQ(readFile(folder.name("a")), "whole");
}

TEST(AtomicFile, WritesBesideTheFileWhereverTheProgramRuns) {
    const TestFolder folder;
    const std::string former = std::filesystem::current_path();
    std::filesystem::current_path(folder.name(""));
    host::replaceFileContent("relative", "x");
    std::filesystem::current_path(former);
    EXPECT_EQ(readFile(folder.name("relative")), "x");
}

}  // namespace
