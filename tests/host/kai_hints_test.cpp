// What users see of the services' own ways to fail.

#include "kai_test.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class KaiHints : public KaiTest {
protected:
    KaiOutcome ask() { return run(Words{"ask"} + turn() + Words{"q"}); }

    /// What is printed where the service answers a question with this.
    KaiOutcome askFor(int status, const std::string& body, const std::string& contentType = "application/json") {
        m_emulator->intercept(
            {.method = "POST",
             .reply = LoopbackReply{.status = status, .headers = {{"Content-Type", contentType}}, .body = body}});
        return ask();
    }
};

/// An answer without text, as a service sends it that stopped for a reason of its own.
class KaiEmptyAnswers : public KaiHints, public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(KaiEmptyAnswers, AreExplained) {
    start(GetParam().first);
    m_emulator->queueAnswer({.choices = {{.parts = {""}, .finishReason = GetParam().second}}});
    const KaiOutcome outcome = ask();
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                HasSubstr("the model gave an empty answer: the service may have blocked the question or "
                          "the answer, or the answer's length was used up before its first word"));
}

INSTANTIATE_TEST_SUITE_P(Reasons, KaiEmptyAnswers,
                         testing::Values(std::pair("google", "SAFETY"), std::pair("google", "RECITATION"),
                                         std::pair("google", "MAX_TOKENS"), std::pair("deepseek", "content_filter"),
                                         std::pair("deepseek", "length"), std::pair("ollama", "length")),
                         [](const auto& test) { return std::string(test.param.first) + "_" + test.param.second; });

TEST_F(KaiHints, ExplainABlockedPrompt) {
    start("google").queueAnswer({.choices = {}});
    const KaiOutcome outcome = ask();
    EXPECT_THAT(outcome.errors, HasSubstr("may have blocked the question")) << outcome.errors;
}

TEST_F(KaiHints, ShowTheWordsOfAnErrorInsideASuccess) {
    start();
    const KaiOutcome outcome = askFor(200, R"({"error":{"message":"The engine is overloaded","code":503}})");
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.errors, HasSubstr("The engine is overloaded"));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("{")));
}

TEST_F(KaiHints, ShowTheWordsOfAnOllamaServer) {
    start("ollama");
    const KaiOutcome outcome = askFor(404, R"({"error":"model 'model-a' not found"})");
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.errors, HasSubstr(": model 'model-a' not found (HTTP 404); "));
}

TEST_F(KaiHints, ShowTheWordsOfMistralsShapes) {
    start();
    EXPECT_THAT(
        askFor(400, R"({"object":"error","message":"Invalid model: x","type":"invalid_model","code":"1500"})").errors,
        HasSubstr(": Invalid model: x (HTTP 400)"));
    EXPECT_THAT(
        askFor(422, R"({"detail":[{"type":"missing","loc":["body","messages"],"msg":"Field required"}]})").errors,
        HasSubstr(": Field required (HTTP 422)"));
    EXPECT_THAT(askFor(401, R"({"detail":"Unauthorized"})").errors,
                HasSubstr(": Unauthorized (HTTP 401); check the key"));
}

TEST_F(KaiHints, ShortenThePageOfAGateway) {
    start();
    const std::string page =
        "<html>\r\n<head><title>502 Bad Gateway</title></head>\r\n<body>\r\n<center><h1>502 Bad "
        "Gateway</h1></center>\r\n<hr><center>nginx</center>\r\n</body>\r\n</html>\r\n";
    const KaiOutcome outcome = askFor(502, page, "text/html");
    EXPECT_EQ(outcome.code, 4);
    EXPECT_THAT(outcome.errors, HasSubstr("the server sent a page in place of an answer: 502 Bad Gateway"));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("<")));
}

}  // namespace
