#include "kai_chat_stream.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"

using Texts = std::vector<std::string>;

namespace {

using Outcome = kai::ChatAnswer::Outcome;

/// What came of a body that arrived in chunks.
struct Reading {
    Texts pieces{};
    kai::ChatAnswer answer{};
    bool isEndedEarly = false;
};

Reading read(const kai::ChatProtocol& protocol, const Texts& chunks, bool isWhole = true) {
    Reading reading;
    const CMTextStream stream([&reading](std::string_view piece) { reading.pieces.emplace_back(piece); });
    kai::ChatStreamReader reader(protocol, stream);
    try {
        for (const std::string& chunk : chunks) {
            reader.read(chunk);
        }
    } catch (const kai::ChatStreamReader::Ended&) {
        reading.isEndedEarly = true;
    }
    reading.answer = reader.takeAnswer(isWhole && !reading.isEndedEarly);
    return reading;
}

Texts cutIntoBytes(const std::string& body) {
    Texts bytes;
    for (const char byte : body) {
        bytes.emplace_back(1, byte);
    }
    return bytes;
}

std::string join(const Texts& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += text;
    }
    return joined;
}

/// Reads the body in one chunk, in two that are cut at every place, and byte by byte, and expects these pieces each
/// time.
void expectPieces(const kai::ChatProtocol& protocol, const std::string& body, const Texts& pieces) {
    std::vector<Texts> cuts{{body}, cutIntoBytes(body)};
    for (std::size_t place = 1; place < body.size(); ++place) {
        cuts.push_back({body.substr(0, place), body.substr(place)});
    }
    for (const Texts& chunks : cuts) {
        const Reading reading = read(protocol, chunks);
        ASSERT_EQ(reading.answer.outcome, Outcome::Complete) << chunks.front();
        ASSERT_EQ(reading.answer.text, join(pieces));
        ASSERT_EQ(reading.pieces, pieces) << chunks.front();
    }
}

/// Expects the body to fail so, in one chunk and byte by byte; a body that is not whole does not come to its end.
void expectFailure(const kai::ChatProtocol& protocol, const std::string& body, Outcome outcome,
                   const std::string& text = {}, bool isWhole = true) {
    for (const Texts& chunks : {Texts{body}, cutIntoBytes(body)}) {
        const Reading reading = read(protocol, chunks, isWhole);
        EXPECT_EQ(reading.answer.outcome, outcome) << body;
        EXPECT_EQ(reading.answer.text, text) << body;
    }
}

const kai::ChatProtocol& s_deepSeek = kai::obtainDeepSeekProtocol();
const kai::ChatProtocol& s_google = kai::obtainGoogleProtocol();
const kai::ChatProtocol& s_ollama = kai::obtainOllamaProtocol();

std::string chunk(const std::string& content, const std::string& reason = "null") {
    return R"(data: {"object":"chat.completion.chunk","choices":[{"index":0,"delta":{"content":")" + content +
           R"("},"finish_reason":)" + reason + "}]}\n\n";
}

std::string response(const std::string& parts, const std::string& rest = {}) {
    return R"(data: {"candidates":[{"content":{"parts":[)" + parts + R"(],"role":"model"})" + rest +
           R"(,"index":0}],"modelVersion":"m"})" + "\r\n\r\n";
}

std::string line(const std::string& content, bool isDone = false) {
    return R"({"model":"m","message":{"role":"assistant","content":")" + content + R"("},"done":)" +
           (isDone ? "true" : "false") + "}\n";
}

constexpr const char* kDone = "data: [DONE]\n\n";

}  // namespace

TEST(ChatStreamReader, TellsEachEventOfAChatCompletionHoweverItsBytesAreCut) {
    expectPieces(s_deepSeek,
                 R"(data: {"choices":[{"index":0,"delta":{"role":"assistant","content":""},"finish_reason":null}]})"
                 "\n\n" +
                     chunk("Hel") + chunk("l\\u00f6\\n\xe2\x82\xac") + chunk("", "\"stop\"") + kDone,
                 {"Hel", "l\xc3\xb6\n\xe2\x82\xac"});
}

TEST(ChatStreamReader, TellsEachResponseOfGeminiHoweverItsBytesAreCut) {
    expectPieces(s_google,
                 response(R"({"text":"A"})") + response(R"({"text":"B"},{"text":"C"})") +
                     response(R"({"text":""})", R"(,"finishReason":"STOP")"),
                 {"A", "BC"});
}

TEST(ChatStreamReader, TellsEachLineOfOllamaHoweverItsBytesAreCut) {
    expectPieces(s_ollama, line("A") + "\r\n" + line("B\\\"") + line("", true), {"A", "B\""});
    expectPieces(s_ollama, line("A") + R"({"done":true,"done_reason":"stop"})", {"A"});
}

TEST(ChatStreamReader, PassesOverWhatIsNoData) {
    expectPieces(s_deepSeek,
                 ": OPENROUTER PROCESSING\n\n:\n\n\nevent: message\nid: 7\nretry: 100\n" + chunk("A") +
                     ": keep-alive\r\n\r\n" + chunk("B") + "data\nunknown: x\n\n" + kDone,
                 {"A", "B"});
}

TEST(ChatStreamReader, ReadsLinesThatEndInCRLFAndDataWithoutABlank) {
    expectPieces(s_deepSeek,
                 "data:{\"choices\":[{\"delta\":{\"content\":\"A\"}}]}\r\n\r\n"
                 "data:{\"choices\":[{\"delta\":{\"content\":\"B\"}}]}\r\n\r\ndata:[DONE]\r\n\r\n",
                 {"A", "B"});
}

TEST(ChatStreamReader, ReadsAnEventOverSeveralLines) {
    expectPieces(
        s_deepSeek,
        "data: {\"choices\":\ndata: [{\"delta\":\ndata:\r\ndata: {\"content\":\"A\"}}]}\n\n" + std::string(kDone),
        {"A"});
}

TEST(ChatStreamReader, ReadsABodyBehindAByteOrderMarkAndWithoutALastLineBreak) {
    expectPieces(s_deepSeek, "\xef\xbb\xbf" + chunk("A") + "data: [DONE]", {"A"});
    expectPieces(s_google, "\n" + response(R"({"text":"A"})") + R"(data: {"candidates":[{"finishReason":"STOP"}]})",
                 {"A"});
    expectPieces(s_ollama, R"({"message":{"content":"A"},"done":true})", {"A"});
}

TEST(ChatStreamReader, PassesOverEventsWithoutAChoice) {
    expectPieces(s_deepSeek,
                 chunk("A") + "data: {\"choices\":[],\"usage\":{\"total_tokens\":3}}\n\n" +
                     "data: {\"choices\":null,\"usage\":{}}\n\ndata: {\"usage\":null,\"error\":null}\n\n" + chunk("B") +
                     kDone,
                 {"A", "B"});
    expectPieces(s_google,
                 "data: {\"usageMetadata\":{}}\n\n" + response(R"({"text":"A"})", R"(,"finishReason":"STOP")") +
                     "data: {\"candidates\":null}\n\n",
                 {"A"});
}

TEST(ChatStreamReader, LeavesThoughtsOutOfTheAnswer) {
    expectPieces(s_deepSeek,
                 R"(data: {"choices":[{"delta":{"role":"assistant","content":null,"reasoning_content":"hm"}}]})"
                 "\n\n" +
                     chunk("A") + kDone,
                 {"A"});
    expectPieces(s_google,
                 response(R"({"text":"hm","thought":true})") +
                     response(R"({"text":"hm","thought":true},{"text":"A","thought":false},{"thoughtSignature":"x"})",
                              R"(,"finishReason":"STOP")"),
                 {"A"});
    expectPieces(s_ollama,
                 R"({"message":{"role":"assistant","content":"","thinking":"hm"},"done":false})"
                 "\n" +
                     line("A", true),
                 {"A"});
}

TEST(ChatStreamReader, LosesACharacterSplitOverTwoEventsAndNotTheAnswer) {
    const std::string lost = "\xef\xbf\xbd";
    expectPieces(s_deepSeek, chunk("a\\ud83d") + chunk("\\ude00b") + kDone, {"a" + lost, lost + "b"});
    expectPieces(s_ollama, line("a\\ud83d") + line("\\ude00b", true), {"a" + lost, lost + "b"});
    expectPieces(
        s_google,
        response("{\"text\":\"a\xf0\x9f\"}") + response("{\"text\":\"\x98\x80z\"}", R"(,"finishReason":"STOP")"),
        {"a" + lost, lost + lost + "z"});
}

TEST(ChatStreamReader, TakesOnlyWhatTheAssistantSays) {
    expectPieces(s_deepSeek,
                 R"(data: {"choices":[{"index":1,"delta":{"role":"user","content":"x"}},)"
                 R"({"index":0,"delta":{"role":"assistant","content":"A"}}]})"
                 "\n\n"
                 R"(data: {"choices":[{"index":1,"delta":{"content":"y"}},{"index":0,"delta":{"content":"B"}}]})"
                 "\n\n" +
                     std::string(kDone),
                 {"A", "B"});
    expectPieces(s_google,
                 R"(data: {"candidates":[{"content":{"role":"user","parts":[{"text":"x"}]}},)"
                 R"({"content":{"role":"model","parts":[{"text":"A"}]},"finishReason":"STOP"}]})"
                 "\n\n",
                 {"A"});
    expectFailure(s_ollama,
                  R"({"message":{"role":"user","content":"A"},"done":true})"
                  "\n",
                  Outcome::Unsupported);
}

TEST(ChatStreamReader, TakesAnAnswerWithoutText) {
    expectPieces(s_deepSeek, chunk("", "\"length\"") + kDone, {});
    expectPieces(s_google, "data: {\"candidates\":[{\"finishReason\":\"SAFETY\"}]}\n\n", {});
    expectPieces(s_ollama, line("", true), {});
}

TEST(ChatStreamReader, TakesAnAnswerAsCompleteAtItsEndMarkHoweverTheBodyEnds) {
    for (const auto& [protocol, body] :
         {std::pair(&s_deepSeek, chunk("A") + kDone), std::pair(&s_ollama, line("A", true))}) {
        const Reading reading = read(*protocol, {body}, false);
        EXPECT_EQ(reading.answer.outcome, Outcome::Complete);
        EXPECT_EQ(reading.answer.text, "A");
    }
    expectPieces(s_deepSeek, chunk("A") + kDone + chunk("behind it") + "data: {\n\n", {"A"});
}

TEST(ChatStreamReader, TakesAReasonToFinishAsCompleteOnlyInAWholeBody) {
    for (const auto& [protocol, body] :
         {std::pair(&s_deepSeek, chunk("A", "\"stop\"")),
          std::pair(&s_google, response(R"({"text":"A"})", R"(,"finishReason":"STOP")"))}) {
        expectPieces(*protocol, body, {"A"});
        expectFailure(*protocol, body, Outcome::Invalid, {}, false);
    }
}

TEST(ChatStreamReader, TakesAnAnswerWithoutAnEndAsBroken) {
    expectFailure(s_deepSeek, chunk("A") + chunk("B"), Outcome::Invalid);
    expectFailure(s_google, response(R"({"text":"A"})"), Outcome::Invalid);
    expectFailure(s_ollama, line("A") + line("B"), Outcome::Invalid);
    for (const kai::ChatProtocol* protocol : {&s_deepSeek, &s_google, &s_ollama}) {
        for (const char* body : {"", "\n", " \r\n\r\n", "<html>\nBad Gateway</html>", "text", "{", ": comment\n\n"}) {
            expectFailure(*protocol, body, Outcome::Invalid);
        }
    }
}

TEST(ChatStreamReader, TakesAnEventThatIsNotJSONAsBroken) {
    expectFailure(s_deepSeek, chunk("A") + "data: {\"choices\":\n\n" + kDone, Outcome::Invalid);
    expectFailure(s_google, response(R"({"text":"A"})") + "data: x\n\n", Outcome::Invalid);
    expectFailure(s_ollama, line("A") + "{\"message\"\n" + line("", true), Outcome::Invalid);
}

TEST(ChatStreamReader, TakesEventsOfAnotherFormAsUnsupported) {
    expectFailure(s_deepSeek, "data: {\"choices\":{}}\n\n" + std::string(kDone), Outcome::Unsupported);
    expectFailure(s_deepSeek, "data: {}\n\n" + std::string(kDone), Outcome::Unsupported);
    expectFailure(s_deepSeek, kDone, Outcome::Unsupported);
    expectFailure(s_google, "data: {\"candidates\":\"A\"}\n\n", Outcome::Unsupported);
    expectFailure(s_google, "data: {\"promptFeedback\":{\"blockReason\":\"SAFETY\"}}\n\n", Outcome::Unsupported);
    expectFailure(s_ollama, R"({"message":{"role":"assistant","content":1},"done":true})", Outcome::Unsupported);
    expectFailure(s_ollama, line("A") + "{\"done\":false}\n" + line("", true), Outcome::Unsupported);
}

TEST(ChatStreamReader, ReportsWhatTheServiceSaysInTheMiddleAndEndsAtOnce) {
    const std::string object = R"({"error":{"message":"overloaded","type":"server_error","code":503}})";
    const std::string plain = R"({"error":"model runner has stopped"})";
    const std::string vllm = R"({"object":"error","message":"engine died","code":500})";
    expectFailure(s_deepSeek, chunk("A") + "data: " + object + "\n\n" + kDone, Outcome::Failed, "overloaded");
    expectFailure(s_deepSeek, "data: " + plain + "\n\n", Outcome::Failed, plain);
    expectFailure(s_deepSeek, chunk("A") + "data: " + vllm + "\n\n" + kDone, Outcome::Failed, vllm);
    expectFailure(s_deepSeek,
                  R"(data: {"error":{"code":502,"message":"upstream"},"choices":[{"delta":{"content":""},)"
                  R"("finish_reason":"error"}]})"
                  "\n\n",
                  Outcome::Failed, "upstream");
    expectFailure(s_google, response(R"({"text":"A"})") + "data: " + object + "\r\n\r\n", Outcome::Failed,
                  "overloaded");
    expectFailure(s_google, response(R"({"text":"A"})") + "data: " + plain + "\r\n\r\n", Outcome::Invalid);
    expectFailure(s_ollama, line("A") + plain + "\n", Outcome::Failed, plain);
    expectFailure(s_ollama, line("A") + object, Outcome::Failed, "overloaded");
    EXPECT_TRUE(read(s_ollama, {line("A") + plain + "\n", line("", true)}).isEndedEarly);
}

TEST(ChatStreamReader, TellsAWholeAnswerAsOnePiece) {
    expectPieces(s_deepSeek,
                 R"({"choices":[{"message":{"role":"assistant","content":"A"}},)"
                 R"({"message":{"role":"assistant","content":"B"}}]})",
                 {"AB"});
    expectPieces(s_google, "{\n \"candidates\": [\n{\"content\":{\"role\":\"model\",\"parts\":[{\"text\":\"A\"}]}}]}\n",
                 {"A"});
    expectPieces(s_ollama, "{\n \"message\":\n{\"role\":\"assistant\",\"content\":\"A\"},\n\n\"done\":true}", {"A"});
    expectPieces(s_ollama, line("A", true), {"A"});
}

TEST(ChatStreamReader, FailsForAWholeAnswerAsAWholeTurnDoes) {
    expectFailure(s_deepSeek, "{}", Outcome::Unsupported);
    expectFailure(s_google, "[]", Outcome::Unsupported);
    expectFailure(s_ollama, "{\n}", Outcome::Unsupported);
    expectFailure(s_deepSeek, R"({"choices":[)", Outcome::Invalid);
    expectFailure(s_deepSeek, R"({"choices":[]})", Outcome::Invalid, {}, false);
    expectFailure(s_deepSeek, R"({"error":{"message":"no credit"}})", Outcome::Failed, "no credit");
    expectFailure(s_google, R"({"error":{"message":"no credit"}})", Outcome::Failed, "no credit");
    expectFailure(s_ollama, "{\n\"error\":\"no model\"}", Outcome::Failed, "{\n\"error\":\"no model\"}");
}

TEST(ChatStreamReader, PassesOnWhatTheHostsFunctionThrows) {
    const CMTextStream stream([](std::string_view) { throw std::runtime_error("from the host"); });
    kai::ChatStreamReader reader(s_deepSeek, stream);
    EXPECT_THROW(reader.read(chunk("A")), std::runtime_error);
}
