#include "emulator_stream.h"

#include <gmock/gmock.h>

#include <sstream>

#include "emulator_client.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What stands behind "data:" in each event.
std::vector<std::string> readEvents(const std::string& body) {
    std::vector<std::string> events;
    std::istringstream lines(body);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("data: ")) {
            events.push_back(line.substr(6, line.ends_with('\r') ? line.size() - 7 : std::string::npos));
        }
    }
    return events;
}

std::vector<KAIEmulatorJson> readLines(const std::string& body) {
    std::vector<KAIEmulatorJson> values;
    std::istringstream lines(body);
    for (std::string line; std::getline(lines, line);) {
        values.push_back(KAIEmulatorJson::parse(line));
    }
    return values;
}

KAIEmulatorJson askChat(const KAIEmulatorJson& members = KAIEmulatorJson::object()) {
    KAIEmulatorJson body{{"model", "m"},
                         {"stream", true},
                         {"messages", KAIEmulatorJson::array({{{"role", "user"}, {"content", "Who?"}}})}};
    body.update(members);
    return body;
}

/// A chat-completions service that offers the model "m".
class StreamedCompletion : public testing::TestWithParam<const char*> {
protected:
    StreamedCompletion() { emulator.setModels({"m"}); }
    PlainResponse ask(const KAIEmulatorJson& members = KAIEmulatorJson::object()) {
        return client.post("/v1/chat/completions", askChat(members));
    }

    KAIEmulator emulator{{.provider = GetParam()}};
    EmulatorClient client{emulator};
};

INSTANTIATE_TEST_SUITE_P(All, StreamedCompletion, testing::Values("deepseek", "openai"),
                         [](const auto& test) { return std::string(test.param); });

class StreamedGemini : public testing::Test {
protected:
    StreamedGemini() { emulator.setModels({"m"}); }
    PlainResponse ask(const std::string& query) {
        return client.post("/v1beta/models/m:streamGenerateContent?key=k" + query,
                           KAIEmulatorJson{{"contents", {{"parts", {{"text", "Who?"}}}}}});
    }
    static std::string readText(const KAIEmulatorJson& response) {
        return response.at("candidates").at(0).at("content").at("parts").at(0).at("text").get<std::string>();
    }

    KAIEmulator emulator{{.provider = "google"}};
    EmulatorClient client{emulator, ""};
};

class StreamedOllama : public testing::Test {
protected:
    StreamedOllama() { emulator.setModels({"m"}); }

    KAIEmulator emulator{{.provider = "ollama", .tls = LoopbackTLS::Off}};
    EmulatorClient client{emulator, ""};
};

}  // namespace

TEST(KAIEmulatedStream, CutsATextIntoWordsOrCharacters) {
    EXPECT_THAT(splitText("One  two\nthree", 0), ElementsAre("One", "  two", "\nthree"));
    EXPECT_THAT(splitText("Łódź!", 2), ElementsAre("Łó", "dź", "!"));
    EXPECT_THAT(splitText("", 0), IsEmpty());
}

TEST(KAIEmulatedStream, KeepsThePartsOfAChoice) {
    const KAIEmulatedChoice choice{.parts = {"a b", " c"}};
    EXPECT_THAT(splitChoice(choice, {}), ElementsAre("a b", " c"));
    EXPECT_THAT(splitChoice(choice, {.pieceCharacters = 4}), ElementsAre("a b ", "c"));
}

TEST_P(StreamedCompletion, BeginsWithTheRoleAndEndsWithItsMark) {
    emulator.queueAnswer({.choices = {{.parts = {"Say two."}, .reasoning = "hm hm"}}});
    const auto response = ask();
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.head, HasSubstr("text/event-stream"));
    const auto events = readEvents(response.body);
    ASSERT_EQ(events.size(), 7U);
    std::vector<std::string> deltas;
    for (std::size_t i = 0; i + 1 < events.size(); ++i) {
        const auto chunk = KAIEmulatorJson::parse(events[i]);
        EXPECT_EQ(chunk.at("object"), "chat.completion.chunk");
        EXPECT_FALSE(chunk.contains("usage"));
        deltas.push_back(chunk.at("choices").at(0).at("delta").dump());
        EXPECT_EQ(chunk.at("choices").at(0).at("finish_reason").is_null(), i != 5);
    }
    EXPECT_THAT(deltas,
                ElementsAre(R"({"role":"assistant","content":""})", R"({"content":null,"reasoning_content":"hm"})",
                            R"({"content":null,"reasoning_content":" hm"})", R"({"content":"Say"})",
                            R"({"content":" two."})", "{}"));
    EXPECT_EQ(events.back(), "[DONE]");
}

TEST_P(StreamedCompletion, TellsUsageInAChunkWithoutChoices) {
    const auto events = readEvents(ask({{"stream_options", {{"include_usage", true}}}}).body);
    const auto chunk = KAIEmulatorJson::parse(events.at(events.size() - 2));
    EXPECT_EQ(chunk.at("choices"), KAIEmulatorJson::array());
    EXPECT_GT(chunk.at("usage").at("total_tokens"), 0);
    EXPECT_TRUE(KAIEmulatorJson::parse(events.front()).at("usage").is_null());
}

TEST_P(StreamedCompletion, FailsInTheMiddleInItsOwnShape) {
    emulator.queueAnswer(
        {.choices = {{.parts = {"one", "two", "three"}}},
         .stream = KAIEmulatedStream{.failure = KAIRefusal{.status = 503, .message = "Overloaded"}, .failAfter = 1}});
    const auto events = readEvents(ask().body);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_THAT(events[1], HasSubstr("one"));
    EXPECT_EQ(KAIEmulatorJson::parse(events[2]).at("error").at("message"), "Overloaded");
}

TEST_P(StreamedCompletion, CutsTheConnectionAfterAPiece) {
    emulator.queueAnswer({.choices = {{.parts = {"one", "two", "three"}}},
                          .stream = KAIEmulatedStream{.fault = LoopbackFault::CutInBody, .faultAfter = 2}});
    const auto response = ask();
    EXPECT_NE(response.code, CURLE_OK);
    EXPECT_EQ(readEvents(response.body).size(), 3U);
    EXPECT_THAT(response.body, testing::Not(HasSubstr("three")));
}

TEST_P(StreamedCompletion, LeavesItsEndOutWhenTold) {
    emulator.queueAnswer({.choices = {{.parts = {"one", "two"}}}, .stream = KAIEmulatedStream{.isEndLeftOut = true}});
    EXPECT_EQ(readEvents(ask().body).size(), 3U);
}

TEST_P(StreamedCompletion, RefusesBeforeItStreams) {
    emulator.queueAnswer(KAIEmulatedAnswer::refuse(429, "slow down"));
    const auto response = ask();
    EXPECT_EQ(response.status, 429);
    EXPECT_THAT(response.head, HasSubstr("application/json"));
}

TEST(StreamedDeepSeek, SendsCommentsWhileItIsBusy) {
    KAIEmulator emulator({.stream = {.keepAlives = 2}});
    emulator.setModels({"m"});
    const auto response = EmulatorClient(emulator).post("/chat/completions", askChat());
    EXPECT_THAT(response.body, testing::StartsWith(": keep-alive\n\n: keep-alive\n\ndata: {"));
}

TEST_F(StreamedGemini, SendsWholeResponsesTheLastWithItsFinishReason) {
    emulator.queueAnswer({.choices = {{.parts = {"one", " two"}, .reasoning = "hm"}}});
    const auto response = ask("&alt=sse");
    EXPECT_THAT(response.head, HasSubstr("text/event-stream"));
    const auto events = readEvents(response.body);
    ASSERT_EQ(events.size(), 3U);
    const auto thought = KAIEmulatorJson::parse(events[0]);
    EXPECT_EQ(thought.at("candidates").at(0).at("content").at("parts").at(0).at("thought"), true);
    const auto last = KAIEmulatorJson::parse(events[2]);
    EXPECT_EQ(readText(KAIEmulatorJson::parse(events[1])) + readText(last), "one two");
    EXPECT_FALSE(KAIEmulatorJson::parse(events[1]).at("candidates").at(0).contains("finishReason"));
    EXPECT_EQ(last.at("candidates").at(0).at("finishReason"), "STOP");
    EXPECT_GT(last.at("usageMetadata").at("totalTokenCount"), 0);
}

TEST_F(StreamedGemini, IsAnArrayUnlessEventsAreAskedFor) {
    emulator.queueAnswer({.choices = {{.parts = {"one", " two", " three"}}}});
    const auto array = EmulatorClient::parse(ask(""));
    ASSERT_EQ(array.size(), 3U);
    EXPECT_EQ(readText(array[0]) + readText(array[1]) + readText(array[2]), "one two three");
}

TEST_F(StreamedGemini, TellsABlockedPromptInOneEvent) {
    emulator.queueAnswer({.choices = {}});
    const auto events = readEvents(ask("&alt=sse").body);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(KAIEmulatorJson::parse(events[0]).at("promptFeedback").at("blockReason"), "SAFETY");
}

TEST_F(StreamedGemini, FailsInTheMiddleInItsOwnShape) {
    emulator.queueAnswer(
        {.choices = {{.parts = {"one", "two"}}},
         .stream = KAIEmulatedStream{.failure = KAIRefusal{.status = 503, .message = "Overloaded"}, .failAfter = 1}});
    const auto events = readEvents(ask("&alt=sse").body);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(KAIEmulatorJson::parse(events[1]).at("error").at("status"), "UNAVAILABLE");
}

TEST_F(StreamedOllama, EndsALineStreamWithItsCounters) {
    emulator.queueAnswer({.choices = {{.parts = {"one", " two"}, .reasoning = "hm", .finishReason = "length"}}});
    const auto lines = readLines(client.post("/api/chat", askChat()).body);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].at("message").at("thinking"), "hm");
    EXPECT_EQ(lines[2].at("message").at("content"), " two");
    EXPECT_EQ(lines[2].at("done"), false);
    EXPECT_EQ(lines[3].at("done"), true);
    EXPECT_EQ(lines[3].at("done_reason"), "length");
    EXPECT_GT(lines[3].at("eval_count"), 0);
}

TEST_F(StreamedOllama, TellsAnErrorInALineOfItsOwn) {
    emulator.queueAnswer({.choices = {{.parts = {"one", "two"}}},
                          .stream = KAIEmulatedStream{.failure = KAIRefusal{.message = "out of memory"}}});
    const auto response = client.post("/api/chat", askChat());
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "{\"error\":\"out of memory\"}\n");
}

TEST_F(StreamedOllama, GeneratesFromAPrompt) {
    emulator.queueAnswer(KAIEmulatedAnswer::say("one two"));
    const auto lines = readLines(client.post("/api/generate", KAIEmulatorJson{{"model", "m"}, {"prompt", "q"}}).body);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].at("response"), "one");
    EXPECT_EQ(lines[2].at("done"), true);
}
