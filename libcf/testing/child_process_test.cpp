#include "child_process.h"

#include <gtest/gtest.h>

#include <csignal>

#include "temporary_folder.h"

TEST(ChildProcess, HandsOnInputOutputErrorsAndTheExitCode) {
    ChildProcess process({.arguments = {"sh", "-c", "read word; echo \"got $word\"; echo wrong >&2; exit 3"}});
    process.write("this\n");
    EXPECT_EQ(process.readLine(), "got this");
    EXPECT_EQ(process.wait(), 3);
    EXPECT_EQ(process.obtainOutput(), "got this\n");
    EXPECT_EQ(process.obtainErrors(), "wrong\n");
    EXPECT_TRUE(process.isAtEnd());
}

TEST(ChildProcess, TakesInputWhileTheProgramWritesMoreThanAPipeHolds) {
    const std::string text(1000000, 'x');
    ChildProcess process({.arguments = {"cat"}});
    process.write(text);
    process.closeInput();
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.obtainOutput(), text);
}

TEST(ChildProcess, TellsTheSignalThatEndedAProgram) {
    ChildProcess process({.arguments = {"cat"}});
    process.sendSignal(SIGTERM);
    EXPECT_EQ(process.wait(), 128 + SIGTERM);
}

TEST(ChildProcess, GivesATerminalOfTheWantedWidth) {
    ChildProcess process(
        {.arguments = {"stty", "size"}, .terminal = ChildProcess::Terminal::All, .terminalColumns = 40});
    EXPECT_TRUE(process.waitForOutput("24 40"));
    EXPECT_EQ(process.wait(), 0);
}

TEST(ChildProcess, GivesNothingButTheGivenEnvironment) {
    ChildProcess process(
        {.arguments = {"/usr/bin/env"}, .environment = std::map<std::string, std::string>{{"ONE", "1"}}});
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.obtainOutput(), "ONE=1\n");
}

TEST(TemporaryFolder, IsRemovedWithItsFiles) {
    std::filesystem::path path;
    {
        const TemporaryFolder folder;
        path = folder.obtainPath();
        EXPECT_EQ(readFile(folder.write("a", "text")), "text");
        EXPECT_EQ(folder.list(), std::vector<std::string>{"a"});
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}
