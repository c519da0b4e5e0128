#include "options.h"

#include <gmock/gmock.h>

#include <initializer_list>

#include "conversation/instructions.h"

namespace {

using host::Command;
using host::ParsedCommandLine;
using testing::HasSubstr;
using testing::Not;

ParsedCommandLine parse(std::initializer_list<const char*> words) {
    std::vector<const char*> arguments{"kai"};
    arguments.insert(arguments.end(), words);
    return host::parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

void expectUsageError(std::initializer_list<const char*> words, const std::string& text) {
    const ParsedCommandLine parsed = parse(words);
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_EQ(parsed.exitCode, 2);
    EXPECT_THAT(parsed.error, HasSubstr(text));
    EXPECT_THAT(parsed.error, Not(HasSubstr("\n")));
    EXPECT_EQ(parsed.output, "");
}

TEST(Options, ReadsAQuestion) {
    const ParsedCommandLine parsed = parse({"ask", "--db", "a.db", "--model", "m", "how", "many?"});
    ASSERT_TRUE(parsed.options.has_value());
    EXPECT_EQ(parsed.options->command, Command::Ask);
    EXPECT_EQ(parsed.options->question, "how many?");
    EXPECT_EQ(parsed.options->database, "a.db");
    EXPECT_FALSE(parsed.options->isRun);
    EXPECT_FALSE(parsed.options->apiHost.has_value());
    EXPECT_EQ(parsed.options->limits.maxRows, 100U);
    EXPECT_EQ(parsed.options->http.timeout, std::chrono::seconds(600));
}

TEST(Options, ReadsEveryOptionOfATurn) {
    const ParsedCommandLine parsed = parse({"chat",
                                            "--db",
                                            "a.db",
                                            "--model",
                                            "m",
                                            "--provider",
                                            "google",
                                            "--api-host",
                                            "h:1",
                                            "--key-file",
                                            "k",
                                            "--key-env",
                                            "E",
                                            "--ca-file",
                                            "c",
                                            "--proxy",
                                            "http://p",
                                            "--timeout",
                                            "5",
                                            "--trace",
                                            "--temperature",
                                            "0.5",
                                            "--instructions",
                                            "be brief",
                                            "--save",
                                            "s",
                                            "--continue",
                                            "o",
                                            "--switch-provider",
                                            "--keep",
                                            "--run",
                                            "--max-rows",
                                            "7",
                                            "--max-cell",
                                            "0",
                                            "--sql-timeout",
                                            "9"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.error;
    const host::Options& options = *parsed.options;
    EXPECT_EQ(options.command, Command::Chat);
    EXPECT_EQ(options.provider, "google");
    EXPECT_EQ(options.apiHost, "h:1");
    EXPECT_EQ(options.key.keyFile, "k");
    EXPECT_EQ(options.key.keyVariable, "E");
    EXPECT_EQ(options.http.caFile, "c");
    EXPECT_EQ(options.http.proxy, "http://p");
    EXPECT_EQ(options.http.timeout, std::chrono::seconds(5));
    EXPECT_TRUE(options.http.isTraced);
    EXPECT_EQ(options.temperature, "0.5");
    EXPECT_EQ(options.instructions, "be brief");
    EXPECT_EQ(options.saveFile, "s");
    EXPECT_EQ(options.continueFile, "o");
    EXPECT_TRUE(options.isSwitchAllowed);
    EXPECT_TRUE(options.isKept);
    EXPECT_TRUE(options.isRun);
    EXPECT_EQ(options.limits.maxRows, 7U);
    EXPECT_EQ(options.maxCellColumns, 0U);
    EXPECT_EQ(options.limits.maxCellBytes, 0U);
    EXPECT_EQ(options.limits.maxTime, std::chrono::seconds(9));
}

TEST(Options, SavesBackToTheFileThatIsContinued) {
    const ParsedCommandLine parsed = parse({"chat", "--continue", "c.kai"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.error;
    EXPECT_EQ(parsed.options->saveFile, "c.kai");
}

TEST(Options, ReadsAQuestionThatBeginsWithADash) {
    const ParsedCommandLine parsed = parse({"ask", "--db", "a", "--model", "m", "--", "--how many?"});
    ASSERT_TRUE(parsed.options.has_value()) << parsed.error;
    EXPECT_EQ(parsed.options->question, "--how many?");
}

TEST(Options, PrintsHelpWithExamplesAndExitCodes) {
    const ParsedCommandLine parsed = parse({"--help"});
    EXPECT_FALSE(parsed.options.has_value());
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_THAT(parsed.output, HasSubstr("Examples:"));
    EXPECT_THAT(parsed.output,
                HasSubstr("Exit codes: 0 done, 1 the model's SQL failed or is missing, or a result was cut, "
                          "2 usage or configuration, 3 database, 4 provider, 130 cancelled."));
    EXPECT_THAT(parsed.output, testing::EndsWith("\n"));
    for (const char* command : {"ask", "chat", "models", "prompt", "forget", "config", "check"}) {
        EXPECT_THAT(parsed.output, HasSubstr(std::string("\n  ") + command));
        EXPECT_EQ(parse({command, "--help"}).exitCode, 0);
    }
    EXPECT_THAT(parse({"chat", "--help"}).output, HasSubstr("\\help"));
}

TEST(Options, PrintsTheVersion) {
    const ParsedCommandLine parsed = parse({"--version"});
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_THAT(parsed.output, testing::MatchesRegex("kai [0-9]+\\.[0-9]+\\.[0-9]+ \\(SQLite 3[.0-9]+, libpq [.0-9]+, "
                                                     "libmariadb [.0-9]+\\)\n"));
}

TEST(Options, SaysWhatIsWrong) {
    expectUsageError({}, "no command");
    expectUsageError({"sing"}, "unknown command");
    expectUsageError({"--frob"}, "unknown option --frob");
    expectUsageError({"ask", "--frob", "x"}, "unknown option --frob");
    expectUsageError({"models", "--db", "a"}, "unknown option --db");
    expectUsageError({"models", "extra"}, "a word too many");
    expectUsageError({"ask", "--db"}, "--db");
    expectUsageError({"ask", "--model", "m", "q"}, "no database");
    expectUsageError({"ask", "--db", "a", "--model", "m"}, "no question");
    expectUsageError({"ask", "--db", "a", "--model", "m", "  "}, "no question");
    expectUsageError({"chat", "--continue", "c", "--run"}, "--run needs the database");
    expectUsageError({"prompt"}, "no database");
    expectUsageError({"forget"}, "file");
    expectUsageError({"models", "--provider", "acme"}, "choose one of deepseek, google, ollama, openai");
    expectUsageError({"models", "--api-host", "https://example.com"}, "without a scheme");
    expectUsageError({"models", "--api-host", "--trace"}, "--api-host takes a host");
    expectUsageError({"models", "--timeout", "0"}, "--timeout");
    expectUsageError({"models", "--timeout", "soon"}, "--timeout");
    expectUsageError({"ask", "--db", "a", "--model", "m", "--temperature", "hot", "q"}, "--temperature takes a number");
    expectUsageError({"ask", "--db", "a", "--model", "m", "--temperature", "nan", "q"}, "--temperature takes a number");
    expectUsageError({"ask", "--db", "a", "--model", "m", "--temperature", "0,5", "q"}, "--temperature takes a number");
    expectUsageError({"ask", "--db", "a", "--model", "m", "--max-rows", "0", "q"}, "--max-rows");
}

TEST(Options, NeverTakesOrRepeatsAKey) {
    for (const auto& words :
         std::initializer_list<std::initializer_list<const char*>>{{"ask", "--key=sk-secret", "q"},
                                                                   {"ask", "--api-key", "sk-secret", "q"},
                                                                   {"models", "--token=sk-secret"},
                                                                   {"models", "--frob=sk-secret"},
                                                                   {"models", "sk-secret"},
                                                                   {"sk-secret"},
                                                                   {"models", "-xsk-secret"}}) {
        const ParsedCommandLine parsed = parse(words);
        EXPECT_EQ(parsed.exitCode, 2);
        EXPECT_THAT(parsed.error + parsed.output, Not(HasSubstr("secret")));
    }
    expectUsageError({"ask", "--api-key", "sk-secret", "q"}, "a key is never taken from the command line");
}

TEST(Instructions, NameTheDialectAndTheFormOfTheAnswer) {
    const auto instructions = host::makeSystemInstructions("PostgreSQL", "15.8");
    ASSERT_EQ(instructions.size(), 3U);
    EXPECT_THAT(instructions.at("1_dialect"),
                AllOf(HasSubstr("PostgreSQL 15.8"), HasSubstr("in the PostgreSQL dialect")));
    EXPECT_THAT(instructions.at("2_answer"), HasSubstr("```sql"));
    EXPECT_THAT(instructions.at("3_structure"), HasSubstr("PRIMARY KEY(`a``b`) is the two columns a and b"));
}

TEST(Instructions, EstimateTokensAndFormatCounts) {
    EXPECT_EQ(host::estimateTokens(0), 0U);
    EXPECT_EQ(host::estimateTokens(1), 1U);
    EXPECT_EQ(host::estimateTokens(4096), 1024U);
    EXPECT_EQ(host::formatCount(7), "7");
    EXPECT_EQ(host::formatCount(1000), "1,000");
    EXPECT_EQ(host::formatCount(1234567), "1,234,567");
}

TEST(Instructions, WarnOfAPromptThatIsLargerThanTheUsualWindow) {
    EXPECT_EQ(host::warnOfContextWindow(4096 * 4), "");
    const std::string warning = host::warnOfContextWindow(4096 * 4 + 1);
    EXPECT_THAT(warning, HasSubstr("about 4,097 tokens (an estimate)"));
    EXPECT_THAT(warning, HasSubstr("OLLAMA_CONTEXT_LENGTH=8194"));
    EXPECT_THAT(warning, HasSubstr("num_ctx"));
}

}  // namespace
