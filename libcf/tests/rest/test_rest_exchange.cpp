#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// What is sent, and what is made of an answer that arrives whole.

namespace {

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "{}"};
}

std::string obtainHeader(const LoopbackRequest& request, const char* name) {
    const std::string* const value = request.findHeader(name);
    return value == nullptr ? "(none)" : *value;
}

/// The names of the headers that are not libcf's own, in order, with their values.
LoopbackFields obtainOwnHeaders(const LoopbackRequest& request, char firstLetter) {
    LoopbackFields fields;
    for (const auto& field : request.headers) {
        if (field.first.front() == firstLetter) {
            fields.push_back(field);
        }
    }
    return fields;
}

}  // namespace

TEST(ICSRestClient, SendsAGetAsItIsAsked) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    const RestResult result = caller.get(server.obtainURL("/v1/models"));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.text, "");
    ASSERT_NE(result.response, nullptr);
    EXPECT_EQ(result.response->obtainStatus(), 200);
    EXPECT_EQ(result.obtainBody(), "{}");
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/v1/models");
    EXPECT_EQ(request.version, "HTTP/1.1");
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(obtainHeader(request, "User-Agent"), caller.settings.userAgent);
    EXPECT_EQ(obtainHeader(request, "Accept-Encoding"), "gzip");
    EXPECT_EQ(obtainHeader(request, "Content-Type"), "(none)");
    EXPECT_EQ(obtainHeader(request, "Content-Length"), "(none)");
    EXPECT_EQ(obtainHeader(request, "Authorization"), "(none)");
}

TEST(ICSRestClient, SendsAPostWithItsJSONBody) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL("/chat"), "hello").code, 0);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, "\"hello\"");
    EXPECT_EQ(obtainHeader(request, "Content-Type"), "application/json");
    EXPECT_EQ(obtainHeader(request, "Content-Length"), "7");
}

TEST(ICSRestClient, SendsAPostWithoutABody) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), nullptr).code, 0);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(obtainHeader(request, "Content-Length"), "0");
    EXPECT_EQ(obtainHeader(request, "Content-Type"), "(none)");
}

TEST(ICSRestClient, SendsADeleteWithoutABody) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.remove(server.obtainURL("/v1/threads/t")).code, 0);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.method, "DELETE");
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(obtainHeader(request, "Content-Length"), "(none)");
    EXPECT_EQ(obtainHeader(request, "Content-Type"), "(none)");
}

TEST(ICSRestClient, LeavesNoTraceOfOneExchangeInTheNext) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    const RestTextBody body("body");
    EXPECT_EQ(caller.remove(server.obtainURL("/1")).code, 0);
    EXPECT_EQ(caller.post(server.obtainURL("/2"), &body, {{"q", "1"}}, {{"X-Once", "1"}}).code, 0);
    EXPECT_EQ(caller.get(server.obtainURL("/3")).code, 0);
    EXPECT_EQ(caller.post(server.obtainURL("/4"), nullptr).code, 0);
    EXPECT_EQ(caller.get(server.obtainURL("/4")).code, 0);
    const std::vector<LoopbackRequest> requests = server.requests();
    ASSERT_EQ(requests.size(), 5U);
    EXPECT_EQ(requests[0].method + requests[0].target + requests[0].body, "DELETE/1");
    EXPECT_EQ(requests[1].method + requests[1].target + requests[1].body, "POST/2?q=1\"body\"");
    EXPECT_EQ(requests[2].method + requests[2].target + requests[2].body, "GET/3");
    EXPECT_EQ(requests[3].method + requests[3].target + requests[3].body, "POST/4");
    EXPECT_EQ(requests[4].method + requests[4].target + requests[4].body, "GET/4");
    EXPECT_EQ(obtainHeader(requests[1], "X-Once"), "1");
    for (const std::size_t index : {0U, 2U, 3U, 4U}) {
        EXPECT_EQ(obtainHeader(requests[index], "X-Once"), "(none)") << index;
        EXPECT_EQ(obtainHeader(requests[index], "Content-Type"), "(none)") << index;
    }
}

TEST(ICSRestClient, SendsABodyOfTwoMegabytesWithoutAskingForLeave) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.recordTrace();
    const std::string text(2'000'000, 'x');
    EXPECT_EQ(caller.post(server.obtainURL(), text).code, 0);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.body, '"' + text + '"');
    EXPECT_EQ(obtainHeader(request, "Expect"), "(none)");
}

TEST(ICSRestClient, SendsTheSessionsHeadersBeforeTheRequests) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.session.setAuthorizationHeaderValue("Bearer key");
    caller.session.addHeaderParam("X-Second", "2");
    caller.session.addHeaderParam("X-First", "1");
    const RestTextBody body("b");
    EXPECT_EQ(caller.post(server.obtainURL(), &body, {}, {{"X-Zero", "0"}, {"X-First", "again"}}).code, 0);
    EXPECT_EQ(caller.remove(server.obtainURL()).code, 0);
    const std::vector<LoopbackRequest> requests = server.requests();
    EXPECT_EQ(obtainOwnHeaders(requests.at(0), 'X'),
              (LoopbackFields{{"X-Second", "2"}, {"X-First", "1"}, {"X-Zero", "0"}, {"X-First", "again"}}));
    EXPECT_EQ(obtainHeader(requests.at(0), "Authorization"), "Bearer key");
    EXPECT_EQ(obtainHeader(requests.at(1), "Authorization"), "Bearer key");
    EXPECT_EQ(obtainOwnHeaders(requests.at(1), 'X'), (LoopbackFields{{"X-Second", "2"}, {"X-First", "1"}}));
}

TEST(ICSRestClient, SendsAHeaderWithAnEmptyOrBlankValue) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL(), {}, {{"X-Empty", ""}, {"X-Blank", "  "}, {"X-Last", "v;"}}).code, 0);
    EXPECT_EQ(obtainOwnHeaders(server.requests().at(0), 'X'),
              (LoopbackFields{{"X-Empty", ""}, {"X-Blank", ""}, {"X-Last", "v;"}}));
}

TEST(ICSRestClient, SendsAHeadersBytesBeyondASCIIAsTheyAre) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL(), {}, {{"X-Name", "J\xC3\xBCrgen\xFF"}}).code, 0);
    EXPECT_EQ(obtainHeader(server.requests().at(0), "X-Name"), "J\xC3\xBCrgen\xFF");
}

TEST(ICSRestClient, SendsOneContentTypeWithAJSONBodyWhateverTheHeadersSay) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.session.addHeaderParam("content-type", "text/plain");
    const RestTextBody body("b");
    EXPECT_EQ(caller.post(server.obtainURL(), &body, {}, {{"Content-Type", "text/xml"}}).code, 0);
    const LoopbackRequest request = server.requests().at(0);
    LoopbackFields types;
    for (const auto& field : request.headers) {
        if (field.first.size() == 12 && (field.first[0] == 'C' || field.first[0] == 'c')) {
            types.push_back(field);
        }
    }
    EXPECT_EQ(types, (LoopbackFields{{"Content-Type", "application/json"}}));
}

TEST(ICSRestClient, SendsTheUserAgentOfTheSettings) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.settings.userAgent = "host/2";
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    caller.settings.userAgent = "";
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(obtainHeader(server.requests().at(0), "User-Agent"), "host/2");
    EXPECT_EQ(obtainHeader(server.requests().at(1), "User-Agent"), "(none)");
}

TEST(ICSRestClient, EncodesQueryParametersOutsideTheUnreservedCharacters) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL("/p"), {{"AZaz09-._~", "AZaz09-._~"}, {"a b", "&=?#/+%"}, {"n", ""}}).code,
              0);
    EXPECT_EQ(caller.get(server.obtainURL("/p"), {{"\xC3\xA4", std::string("\0\n\x7F", 3)}}).code, 0);
    EXPECT_EQ(server.requests().at(0).target, "/p?AZaz09-._~=AZaz09-._~&a%20b=%26%3D%3F%23%2F%2B%25&n=");
    EXPECT_EQ(server.requests().at(1).target, "/p?%C3%A4=%00%0A%7F");
}

TEST(ICSRestClient, AddsQueryParametersBehindAnExistingQuery) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL("/p?x=%41"), {{"a", "1"}}).code, 0);
    EXPECT_EQ(caller.get(server.obtainURL("/p?x#part?"), {{"a", "1"}, {"b", "2"}}).code, 0);
    EXPECT_EQ(caller.get(server.obtainURL("/p#part?"), {{"a", "1"}}).code, 0);
    EXPECT_EQ(caller.get(server.obtainURL(""), {{"a", "1"}}).code, 0);
    EXPECT_EQ(server.requests().at(0).target, "/p?x=%41&a=1");
    EXPECT_EQ(server.requests().at(1).target, "/p?x&a=1&b=2");
    EXPECT_EQ(server.requests().at(2).target, "/p?a=1");
    EXPECT_EQ(server.requests().at(3).target, "/?a=1");
}

TEST(ICSRestClient, SendsThePathAsItIs) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    for (const char* const path : {"/a//b/../c/./d", "/models/a:generateContent", "/%zz/%2f{x}|\""}) {
        EXPECT_EQ(caller.get(server.obtainURL(path)).code, 0) << path;
        EXPECT_EQ(server.requests().back().target, path);
    }
}

TEST(ICSRestClient, EncodesBytesBeyondASCIIInThePathOnly) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL("/\xC3\xA4?\xC3\xA4=\xFF")).code, 0);
    EXPECT_EQ(server.requests().at(0).target, "/%c3%a4?\xC3\xA4=\xFF");
}

TEST(ICSRestClient, TakesTheSchemeInAnyCase) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    EXPECT_EQ(caller.get("HtTp://" + server.obtainAuthority() + "/").code, 0);
}

TEST(ICSRestClient, RunsWithoutASession) {
    LoopbackServer server(answerOK);
    ICSAppFactory* const factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(factory->obtainRestService()->createRestClient(factory, {}, nullptr));
    CMRestGetRequest request;
    request.setURL(server.obtainURL());
    CMRestResourceResponse* response = nullptr;
    EXPECT_EQ(client->runGet(request, response), 0);
    ASSERT_NE(response, nullptr);
    delete response;
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(ICSRestClient, CopiesItsSettings) {
    LoopbackServer server(answerOK);
    ICSAppFactory* const factory = CF::obtainAppFactory();
    CMRestGlobalSettings settings;
    settings.userAgent = "before";
    const std::unique_ptr<ICSRestClient> client(
        factory->obtainRestService()->createRestClient(factory, settings, nullptr));
    settings.userAgent = "after";
    CMRestGetRequest request;
    request.setURL(server.obtainURL());
    CMRestResourceResponse* response = nullptr;
    EXPECT_EQ(client->runGet(request, response), 0);
    delete response;
    EXPECT_EQ(obtainHeader(server.requests().at(0), "User-Agent"), "before");
}

TEST(ICSRestClient, SetsTheResponseToNullWhenNoneArrives) {
    ICSAppFactory* const factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(factory->obtainRestService()->createRestClient(factory, {}, nullptr));
    CMRestResourceResponse placed(200, "");
    CMRestResourceResponse* response = &placed;
    EXPECT_NE(client->runDelete(CMRestDeleteRequest(), response), 0);
    EXPECT_EQ(response, nullptr);
}

TEST(ICSRestClient, TakesEveryStatusOf200To299ForSuccess) {
    for (const int status : {200, 201, 202, 204, 226, 299}) {
        LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{.status = status}; });
        RestCaller caller;
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.code, 0) << status;
        ASSERT_NE(result.response, nullptr) << status;
        EXPECT_EQ(result.response->obtainStatus(), status);
    }
}

TEST(ICSRestClient, NeedsNoLengthOfAResponseThatHasNoBody) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.raw = "HTTP/1.1 204 Done\r\n\r\n"}; },
                              {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        EXPECT_EQ(caller.remove(server.obtainURL()).text, "");
        EXPECT_EQ(caller.remove(server.obtainURL()).obtainBody(), "");
        EXPECT_EQ(server.countConnections(), 1U);
    }
}

TEST(ICSRestClient, HandsBackTheResponseOfAnyOtherStatusWithItsText) {
    for (const auto& [status, text] :
         std::initializer_list<std::pair<int, const char*>>{{300, "HTTP 300 Multiple Choices"},
                                                            {304, "HTTP 304 Not Modified"},
                                                            {400, "HTTP 400 Bad Request"},
                                                            {401, "HTTP 401 Unauthorized"},
                                                            {429, "HTTP 429 Too Many Requests"},
                                                            {500, "HTTP 500 Internal Server Error"},
                                                            {599, "HTTP 599"},
                                                            {999, "HTTP 999"}}) {
        LoopbackServer server([status = status](const LoopbackRequest&) {
            return LoopbackReply{.status = status, .reason = "Whatever", .body = status == 304 ? "" : "why"};
        });
        RestCaller caller;
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.code, status);
        EXPECT_EQ(result.text, text);
        ASSERT_NE(result.response, nullptr) << status;
        EXPECT_EQ(result.response->obtainStatus(), status);
        EXPECT_EQ(result.obtainBody(), status == 304 ? "" : "why");
    }
}

TEST(ICSRestClient, FollowsNoRedirect) {
    LoopbackServer target(answerOK);
    for (const auto& [status, text] :
         std::initializer_list<std::pair<int, const char*>>{{301, "HTTP 301 Moved Permanently"},
                                                            {302, "HTTP 302 Found"},
                                                            {303, "HTTP 303 See Other"},
                                                            {307, "HTTP 307 Temporary Redirect"},
                                                            {308, "HTTP 308 Permanent Redirect"}}) {
        LoopbackServer server([&, status = status](const LoopbackRequest&) {
            return LoopbackReply{.status = status, .headers = {{"Location", target.obtainURL()}}, .body = "moved"};
        });
        RestCaller caller;
        caller.session.setAuthorizationHeaderValue("Bearer key");
        const RestResult result = caller.post(server.obtainURL(), "b");
        EXPECT_EQ(result.text, text);
        EXPECT_EQ(result.obtainBody(), "moved");
        EXPECT_EQ(server.countRequests(), 1U);
    }
    EXPECT_EQ(target.countConnections(), 0U);
}

TEST(ICSRestClient, ReadsABodyInEveryFraming) {
    const std::string body(100'000, 'b');
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const LoopbackFraming framing :
             {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
            LoopbackServer server(
                [&](const LoopbackRequest&) { return LoopbackReply{.body = body, .framing = framing}; }, {.tls = tls});
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            const RestResult result = caller.get(server.obtainURL());
            EXPECT_EQ(result.text, "");
            EXPECT_EQ(result.obtainBody(), body);
        }
    }
}

TEST(ICSRestClient, SetsAsideNoMoreThanASmallBodyNeeds) {
    for (const LoopbackFraming framing :
         {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
        LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{.body = "ok", .framing = framing}; });
        RestCaller caller;
        const RestResult result = caller.get(server.obtainURL());
        ASSERT_EQ(result.obtainBody(), "ok");
        EXPECT_LT(result.response->getBufferString().capacity(), 1024U);
    }
}

TEST(ICSRestClient, LeavesTheProcessorAloneWhileABodyStalls) {
    const auto measureProcessor = [] {
        timespec used{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
    };
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.body = "firstsecond",
                             .fault = LoopbackFault::StallInBody,
                             .faultAt = 5,
                             .stallLimit = std::chrono::milliseconds(500)};
    });
    RestCaller caller;
    const auto start = measureProcessor();
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "firstsecond");
    EXPECT_LT(measureProcessor() - start, std::chrono::milliseconds(50));
}

TEST(ICSRestClient, DecompressesAGzipBody) {
    const std::string body(1'000'000, 'z');
    for (const LoopbackFraming framing : {LoopbackFraming::ContentLength, LoopbackFraming::Chunked}) {
        LoopbackServer server([&](const LoopbackRequest&) {
            return LoopbackReply{.body = body, .framing = framing, .isCompressed = true};
        });
        RestCaller caller;
        caller.recordTrace();
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.obtainBody(), body);
        EXPECT_EQ(caller.records.at(0).responseBytes, body.size());
    }
}

TEST(ICSRestClient, ReadsJSONWhateverTheContentTypeSays) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.headers = {{"Content-Type", "text/html"}}, .body = R"({"a": "b"})"};
    });
    RestCaller caller;
    const RestResult result = caller.get(server.obtainURL());
    ASSERT_NE(result.response, nullptr);
    ASSERT_NE(result.response->getJson(), nullptr);
    EXPECT_EQ(result.response->getJson()->obtainMember("a").obtainString(), "b");
}

TEST(ICSRestClient, PassesOverInterimResponses) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.raw =
                                 "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n"
                                 "HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\nok"};
    });
    RestCaller caller;
    const RestResult result = caller.post(server.obtainURL(), "b");
    EXPECT_EQ(result.code, 0);
    ASSERT_NE(result.response, nullptr);
    EXPECT_EQ(result.response->obtainStatus(), 201);
    EXPECT_EQ(result.obtainBody(), "ok");
}

TEST(ICSRestClient, KeepsZeroBytesOfABody) {
    const std::string body("a\0b\0", 4);
    LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{.body = body}; });
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), body);
}
