#include <gtest/gtest.h>

#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Before libcurl stores the first header of a response, libcf looks at the line: one that begins with a blank would
// make libcurl 7.88 use the memory of an earlier response's last header, which it has freed.

namespace {

constexpr const char* kMalformed = "The server's answer is not valid HTTP";

/// A server that answers by turns with a header of 100 bytes and with `raw`.
LoopbackServer::Handler alternate(const std::string& raw) {
    return [raw](const LoopbackRequest& request) {
        return request.ordinal % 2 == 1 ? LoopbackReply{.headers = {{"X-Long", std::string(100, 'x')}}, .body = "ok"}
                                        : LoopbackReply{.raw = raw};
    };
}

LoopbackServer::Handler answerAndClose(const std::string& raw) {
    return [raw](const LoopbackRequest&) { return LoopbackReply{.raw = raw, .isClosedAfter = true}; };
}

}  // namespace

TEST(RestFirstHeader, CannotContinueAHeaderOfAnEarlierResponse) {
    const std::string rest = "Folded: " + std::string(200, 'f') + "\r\nContent-Length: 6\r\n\r\nfolded";
    for (const std::string& raw : {
             "HTTP/1.1 200 OK\r\n " + rest,
             "HTTP/1.1 200 OK\r\n\t" + rest,
             "HTTP/1.1 103 Early Hints\r\n " + rest,
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n " + rest,
         }) {
        for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
            LoopbackServer server(alternate(raw), {.tls = tls});
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            for (int round = 0; round < 20; ++round) {
                EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "ok");
                const RestResult result = caller.post(server.obtainURL(), "b");
                EXPECT_EQ(result.text, kMalformed) << raw;
                EXPECT_EQ(result.response, nullptr);
            }
        }
    }
}

TEST(RestFirstHeader, MayBeContinuedByTheNextLine) {
    for (const std::string head : {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n"}) {
        LoopbackServer server(alternate(head + "X-Folded: one\r\n two\r\n\tthree\r\nContent-Length: 2\r\n\r\nok"));
        RestCaller caller;
        for (int round = 0; round < 4; ++round) {
            EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
        }
        EXPECT_EQ(server.countConnections(), 1U);
    }
}

TEST(RestFirstHeader, MayBeLongerThanWhatLibcurlHandsOverAtOnce) {
    // The second piece begins with a blank.
    LoopbackServer server(
        alternate("HTTP/1.1 200 OK\r\nX-Long: " + std::string(40'000, ' ') + "x\r\nContent-Length: 2\r\n\r\nok"));
    RestCaller caller;
    for (int round = 0; round < 4; ++round) {
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    }
}

TEST(RestFirstHeader, MayBeMissing) {
    for (const std::string body : {" a blank", "HTTP/1.1 200 OK\r\n\r\nagain", "\r\n", "plain", ""}) {
        LoopbackServer server(answerAndClose("HTTP/1.1 200 OK\r\n\r\n" + body));
        RestCaller caller;
        for (int round = 0; round < 2; ++round) {
            const RestResult result = caller.get(server.obtainURL());
            EXPECT_EQ(result.text, "") << body;
            EXPECT_EQ(result.obtainBody(), body);
        }
    }
}

TEST(RestFirstHeader, AndTheLinesBeforeItAreNoPartOfTheBody) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.raw =
                                 "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                 "2\r\nok\r\n0\r\nX-Trailer: one\r\nX-Trailer: two\r\n\r\n"};
    });
    RestCaller caller;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    }
    EXPECT_EQ(server.countConnections(), 1U);
}
