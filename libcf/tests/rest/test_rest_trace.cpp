#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

namespace {

using namespace std::chrono_literals;

LoopbackServer::Handler answer(LoopbackReply reply) {
    return [reply = std::move(reply)](const LoopbackRequest&) { return reply; };
}

/// What the trace shows for a URL. Nothing is sent: the exchange is cancelled from the start.
std::string showURL(const std::string& url, const CMRestParams& queryParams = {}) {
    RestCaller caller;
    caller.recordTrace();
    caller.settings.cancelled = [] { return true; };
    caller.get(url, queryParams);
    return caller.records.size() == 1 ? caller.records[0].url : "(not traced once)";
}

}  // namespace

TEST(RestTrace, TellsOfASuccess) {
    LoopbackServer server(answer({.status = 201, .body = "12345"}));
    RestCaller caller;
    caller.recordTrace();
    caller.post(server.obtainURL("/chat"), "abc");
    caller.get(server.obtainURL("/models"));
    caller.remove(server.obtainURL("/t"));
    ASSERT_EQ(caller.records.size(), 3U);
    const CMRestTraceRecord& post = caller.records[0];
    EXPECT_EQ(post.method, "POST");
    EXPECT_EQ(post.url, server.obtainURL("/chat"));
    EXPECT_EQ(post.status, 201);
    EXPECT_EQ(post.resultCode, 0);
    EXPECT_EQ(post.requestBytes, 5U);
    EXPECT_EQ(post.responseBytes, 5U);
    EXPECT_GT(post.duration, 0us);
    EXPECT_FALSE(post.connectionReused);
    EXPECT_EQ(caller.records[1].method, "GET");
    EXPECT_EQ(caller.records[1].requestBytes, 0U);
    EXPECT_TRUE(caller.records[1].connectionReused);
    EXPECT_EQ(caller.records[2].method, "DELETE");
}

TEST(RestTrace, TellsWhenTheBodyBegan) {
    LoopbackServer server(
        answer({.body = "0123456789", .fault = LoopbackFault::StallInBody, .faultAt = 5, .stallLimit = 400ms}));
    RestCaller caller;
    caller.recordTrace();
    caller.get(server.obtainURL());
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_GT(caller.records[0].firstByte, 0us);
    EXPECT_LE(caller.records[0].firstByte + 100ms, caller.records[0].duration);
}

TEST(RestTrace, TellsThatNoByteOfABodyCame) {
    LoopbackServer server(answer({}));
    RestCaller caller;
    caller.recordTrace();
    caller.get(server.obtainURL());
    caller.get("no URL");
    ASSERT_EQ(caller.records.size(), 2U);
    EXPECT_EQ(caller.records[0].firstByte, 0us);
    EXPECT_EQ(caller.records[1].firstByte, 0us);
}

TEST(RestTrace, TellsOfAStatusThatIsNoSuccess) {
    LoopbackServer server(answer({.status = 404, .body = "no"}));
    RestCaller caller;
    caller.recordTrace();
    caller.get(server.obtainURL());
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].status, 404);
    EXPECT_EQ(caller.records[0].resultCode, 404);
    EXPECT_EQ(caller.records[0].responseBytes, 2U);
}

TEST(RestTrace, TellsOfABodyCutShortWhatCameOfIt) {
    LoopbackServer server(answer({.body = "0123456789", .fault = LoopbackFault::CutInBody, .faultAt = 4}));
    RestCaller caller;
    caller.recordTrace();
    const RestResult result = caller.get(server.obtainURL());
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].status, 200);
    EXPECT_EQ(caller.records[0].resultCode, result.code);
    EXPECT_EQ(caller.records[0].responseBytes, 4U);
}

TEST(RestTrace, TellsOfAnExchangeWithoutAResponse) {
    LoopbackServer server(answer({.fault = LoopbackFault::ResetBeforeReply}));
    RestCaller caller;
    caller.recordTrace();
    const RestResult result = caller.post(server.obtainURL(), "abc");
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].status, 0);
    EXPECT_EQ(caller.records[0].resultCode, result.code);
    EXPECT_EQ(caller.records[0].requestBytes, 5U);
    EXPECT_EQ(caller.records[0].responseBytes, 0U);
}

TEST(RestTrace, MeasuresTheWholeExchange) {
    LoopbackServer server(answer({.fault = LoopbackFault::StallBeforeReply, .stallLimit = 60ms}));
    RestCaller caller;
    caller.recordTrace();
    caller.get(server.obtainURL());
    EXPECT_GE(caller.records.at(0).duration, 59ms);
    EXPECT_LT(caller.records.at(0).duration, 60s);
}

TEST(RestTrace, MasksEveryQueryValue) {
    EXPECT_EQ(showURL("http://h/p", {{"key", "secret"}, {"pageSize", "5"}, {"empty", ""}}),
              "http://h/p?key=***&pageSize=***&empty=***");
    EXPECT_EQ(showURL("http://h/p?a=1&b=x=y;z&c=", {{"d", "4"}}), "http://h/p?a=***&b=***&c=***&d=***");
}

TEST(RestTrace, MasksAQueryPartWithoutAName) {
    EXPECT_EQ(showURL("http://h/p?token"), "http://h/p?***");
    EXPECT_EQ(showURL("http://h/p?&a=1&&"), "http://h/p?&a=***&&");
    EXPECT_EQ(showURL("http://h/p?"), "http://h/p?");
}

TEST(RestTrace, MasksUserInformation) {
    EXPECT_EQ(showURL("https://user:pass@h:8080/p"), "https://***@h:8080/p");
    EXPECT_EQ(showURL("https://user@h"), "https://***@h");
    EXPECT_EQ(showURL("https://a@b:c@h/p@q"), "https://***@h/p@q");
}

TEST(RestTrace, MasksTheFragment) {
    EXPECT_EQ(showURL("http://h/p#access_token=1"), "http://h/p#***");
}

TEST(RestTrace, EncodesControlCharactersOfARefusedURL) {
    EXPECT_EQ(showURL("http://h/a\r\nb\x7F"), "http://h/a%0D%0Ab%7F");
    EXPECT_EQ(showURL(std::string("http://h/\0", 10)), "http://h/%00");
}

TEST(RestTrace, ShowsOnlyTheSchemeWhereACredentialMayStandAnywhere) {
    EXPECT_EQ(showURL("https://user:pa/ss@h/p"), "https://***");
    EXPECT_EQ(showURL("https://user:pa#ss@h/p"), "https://***");
    EXPECT_EQ(showURL("https://user:pa?ss@h/p"), "https://***");
    EXPECT_EQ(showURL(""), "***");
}

TEST(RestTrace, ShowsTheURLOfAnotherScheme) {
    EXPECT_EQ(showURL("ftp://user:pass@h/p?a=1"), "ftp://***@h/p?a=***");
}

TEST(RestTrace, HoldsNoCredential) {
    LoopbackServer server(answer({.headers = {{"Set-Cookie", "sesame"}}, .body = "sesame"}));
    RestCaller caller;
    caller.recordTrace();
    caller.session.setAuthorizationHeaderValue("Bearer sesame");
    const RestTextBody body("sesame");
    for (const std::string userInfo : {"", "sesame:sesame@"}) {
        caller.post("http://" + userInfo + server.obtainAuthority() + "/p?k=sesame", &body, {{"key", "sesame"}},
                    {{"X-Key", "sesame"}});
    }
    ASSERT_EQ(caller.records.size(), 2U);
    EXPECT_EQ(caller.records[0].resultCode, 0);
    EXPECT_EQ(caller.records[1].resultCode, static_cast<std::int32_t>(CMRestResult::UserInfoInURL));
    for (const CMRestTraceRecord& record : caller.records) {
        EXPECT_EQ((record.url + record.method).find("sesame"), std::string::npos);
    }
}
