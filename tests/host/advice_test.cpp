#include "conversation/advice.h"

#include <gmock/gmock.h>

#include "cf/rest.h"

namespace {

using host::adviseOn;
using host::FailedExchange;
using host::findServiceWords;
using testing::HasSubstr;
using testing::Not;

FailedExchange failWith(CMRestResult result) {
    FailedExchange exchange;
    exchange.hasRun = true;
    exchange.resultCode = static_cast<std::int32_t>(result);
    exchange.provider = "deepseek";
    return exchange;
}

FailedExchange failWithStatus(std::int32_t status) {
    FailedExchange exchange = failWith(CMRestResult::Success);
    exchange.resultCode = status;
    return exchange;
}

TEST(Advice, SaysNothingWhereNobodyWasAsked) {
    EXPECT_EQ(adviseOn({}), "");
    EXPECT_EQ(adviseOn(failWith(CMRestResult::OversizedResponse)), "");
}

TEST(Advice, SuggestsTheCAFileWhereItCanHelp) {
    EXPECT_THAT(adviseOn(failWith(CMRestResult::UntrustedCertificate)), HasSubstr("name its CA with --ca-file"));
    FailedExchange named = failWith(CMRestResult::UntrustedCertificate);
    named.isCAFileNamed = true;
    EXPECT_THAT(adviseOn(named), HasSubstr("does not hold its issuer"));
    for (const CMRestResult result : {CMRestResult::OutdatedCertificate, CMRestResult::WrongHostCertificate}) {
        EXPECT_THAT(adviseOn(failWith(result)), Not(HasSubstr("--ca-file")));
        EXPECT_NE(adviseOn(failWith(result)), "");
    }
}

TEST(Advice, NamesTheOptionOfEachFailure) {
    EXPECT_THAT(adviseOn(failWith(CMRestResult::PlainHTTPServer)), HasSubstr("--plain-http"));
    EXPECT_THAT(adviseOn(failWith(CMRestResult::Proxy)), HasSubstr("--proxy"));
    EXPECT_THAT(adviseOn(failWith(CMRestResult::RequestTimeout)), HasSubstr("--timeout"));
    EXPECT_THAT(adviseOn(failWith(CMRestResult::UnresolvedHost)), HasSubstr("--api-host"));
}

TEST(Advice, TellsHowToStartALocalServer) {
    FailedExchange exchange = failWith(CMRestResult::NoConnection);
    exchange.provider = "ollama";
    EXPECT_THAT(adviseOn(exchange), Not(HasSubstr("ollama serve")));
    exchange.isDefaultHost = true;
    EXPECT_THAT(adviseOn(exchange), HasSubstr("ollama serve"));
}

TEST(Advice, SaysWhereTheKeyIs) {
    FailedExchange exchange = failWithStatus(401);
    EXPECT_EQ(adviseOn(exchange), " (HTTP 401)");
    exchange.keyOrigin = "MY_KEY";
    EXPECT_EQ(adviseOn(exchange), " (HTTP 401); check the key in MY_KEY");
}

TEST(Advice, KnowsThatTheAssistantsProtocolHasEnded) {
    FailedExchange exchange = failWithStatus(404);
    exchange.provider = "openai";
    EXPECT_THAT(adviseOn(exchange), Not(HasSubstr("2026")));
    exchange.isDefaultHost = true;
    EXPECT_THAT(adviseOn(exchange), HasSubstr("26 August 2026"));
    EXPECT_THAT(adviseOn(exchange), HasSubstr("--provider deepseek --api-host api.openai.com/v1"));
}

TEST(Advice, KnowsErrorsInsideASuccessfulResponse) {
    EXPECT_THAT(adviseOn(failWith(CMRestResult::Success)), HasSubstr("an error of its own"));
}

TEST(ServiceWords, ReadsEachServicesShape) {
    EXPECT_EQ(findServiceWords(R"({"error":"model 'x' not found"})"), "model 'x' not found");  // Ollama
    EXPECT_EQ(
        findServiceWords(R"({"object":"error","message":"Invalid model: x","type":"invalid_model","code":"1500"})"),
        "Invalid model: x");  // Mistral
    EXPECT_EQ(findServiceWords(R"({"message":"Unauthorized","request_id":"1"})"), "Unauthorized");
    EXPECT_EQ(findServiceWords(R"({"detail":[{"loc":["body"],"msg":"Field required","type":"missing"}]})"),
              "Field required");  // Mistral, gateways
    EXPECT_EQ(findServiceWords(R"({"detail":"Not Found"})"), "Not Found");
    EXPECT_EQ(findServiceWords(R"({"error":{"message":"no such key","code":401}})"), "no such key");
    EXPECT_EQ(findServiceWords(R"([{"error":{"message":"API key not valid","status":"INVALID_ARGUMENT"}}])"),
              "API key not valid");  // Gemini, streamed
}

TEST(ServiceWords, TakesThePagesOfGatewaysForWhatTheySay) {
    EXPECT_EQ(findServiceWords("<!DOCTYPE html>\n<html><head><title>502 Bad Gateway</title></head><body>long</body>"),
              "the server sent a page in place of an answer: 502 Bad Gateway");
    EXPECT_THAT(findServiceWords("<html><body>No <b>way</b></body></html>\n"),
                testing::MatchesRegex("the server sent a page in place of an answer: No +way"));
    EXPECT_THAT(findServiceWords("<html></html>"), HasSubstr("a page without text"));
}

TEST(ServiceWords, LeavesOtherTextsAsTheyAre) {
    for (const char* text : {"Unsupported data format: g/models", "", "{broken", "{\"code\":1}", "a < b"}) {
        EXPECT_EQ(findServiceWords(text), text);
    }
}

}  // namespace
