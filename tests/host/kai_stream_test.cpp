// Answers that are shown as they come.

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

KAIEmulatedAnswer streamInPieces(const std::string& text, const KAIEmulatedStream& stream) {
    KAIEmulatedAnswer answer = KAIEmulatedAnswer::say(text);
    answer.stream = stream;
    return answer;
}

class KaiStream : public KaiTest {};

TEST_F(KaiStream, ShowsAPipeEachPieceWhenItHasCome) {
    KAIEmulatedStream stream;
    stream.pieceCharacters = 6;
    stream.fault = LoopbackFault::StallInBody;
    stream.faultAfter = 2;
    start().queueAnswer(streamInPieces("There are three cities.", stream));
    const auto process = launch(Words{"ask"} + turn() + Words{"q"});
    ASSERT_TRUE(process->waitForOutput("There are th"));
    EXPECT_EQ(process->obtainOutput(), "There are th");
    m_emulator->obtainServer().releaseStalls();
    static_cast<void>(finish(*process));
}

TEST_F(KaiStream, EndsTheElapsedTimeAtTheFirstPieceOnATerminal) {
    KAIEmulatedStream stream;
    stream.pieceCharacters = 6;
    stream.fault = LoopbackFault::StallInBody;
    stream.faultAfter = 2;
    start().queueAnswer(streamInPieces("**Bold** and SQL", stream));
    m_environment.erase("NO_COLOR");
    const auto process = launch(Words{"chat"} + turn(), ChildProcess::Terminal::All);
    ASSERT_TRUE(process->waitForOutput("kai> "));
    process->write("q\n");
    ASSERT_TRUE(process->waitForOutput("\x1b[1m**Bold**\x1b[0m an"));
    process->write("\x03");
    ASSERT_TRUE(
        process->waitForOutput("cancelled; the conversation is as it was; what was shown of the answer is not kept"));
    process->write("\\quit\n");
    EXPECT_EQ(process->wait(), 0);
}

TEST_F(KaiStream, UsesNoColoursWhereTheyAreNotWanted) {
    for (const auto& [name, value] : {std::pair{"NO_COLOR", "1"}, std::pair{"TERM", "dumb"}}) {
        const std::string former = m_environment[name];
        m_environment[name] = value;
        start().queueAnswer(KAIEmulatedAnswer::say("**Bold** `code`"));
        const auto process = launch(Words{"ask"} + turn() + Words{"q"}, ChildProcess::Terminal::All);
        EXPECT_TRUE(process->waitForOutput("**Bold** `code`")) << process->obtainOutput();
        EXPECT_EQ(process->wait(), 0);
        m_environment[name] = former;
    }
}

TEST_F(KaiStream, SaysThatWhatWasShownIsNotKept) {
    KAIEmulatedStream stream;
    stream.failure = KAIRefusal{.status = 500, .message = "The server is overloaded"};
    stream.failAfter = 2;
    start().queueAnswer(streamInPieces("There are three cities.", stream));
    m_emulator->queueAnswer(KAIEmulatedAnswer::say("fine"));
    const KaiOutcome outcome = run(Words{"chat"} + turn(), "one\ntwo\n");
    EXPECT_THAT(outcome.output, StartsWith("There are"));
    EXPECT_THAT(outcome.output, HasSubstr("\nfine\n"));
    EXPECT_THAT(outcome.errors, HasSubstr("; what was shown of the answer is not kept\n"));
    EXPECT_THAT(listQuestions().back()["messages"], SizeIs(2));
}

/// The same answer from each provider.
class KaiStreams : public KaiTest, public testing::WithParamInterface<const char*> {};

TEST_P(KaiStreams, FindSqlWhoseFenceCameInPieces) {
    KAIEmulatedStream stream;
    stream.pieceCharacters = 1;
    start(GetParam());
    m_emulator->queueAnswer(streamInPieces("Łódź:\n\n```sql\nSELECT count(*) AS n FROM cities;\n```\n", stream));
    const KaiOutcome outcome = run(Words{"ask", "--run"} + turn() + Words{"How many?"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "Łódź:\n\n```sql\nSELECT count(*) AS n FROM cities;\n```\n\nn\n-\n3\n(1 row)\n");
    EXPECT_EQ(outcome.errors, "");
}

INSTANTIATE_TEST_SUITE_P(All, KaiStreams, testing::Values("openai", "google", "deepseek", "ollama"),
                         [](const testing::TestParamInfo<const char*>& test) { return std::string(test.param); });

}  // namespace
