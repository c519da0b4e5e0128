#include "loopback_server.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <thread>

#include "plain_client.h"

namespace {

using namespace std::chrono_literals;

LoopbackReply sayHello(const LoopbackRequest&) {
    return {.headers = {{"Content-Type", "text/plain"}}, .body = "hello"};
}

LoopbackServer::Handler alwaysReply(LoopbackReply reply) {
    return [reply = std::move(reply)](const LoopbackRequest&) { return reply; };
}

}  // namespace

TEST(LoopbackServer, RecordsTheRequestAsItWasSent) {
    LoopbackServer server(sayHello);
    PlainClient client;
    const auto response = client.send({.method = "POST",
                                       .url = server.obtainURL("/a%20b/c?key=x%26y&empty=&key=z+1&bare"),
                                       .headers = {"X-Second: 2", "X-First:  1 "},
                                       .body = "payload"});
    EXPECT_EQ(response.code, CURLE_OK);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "hello");
    ASSERT_EQ(server.countRequests(), 1U);
    const auto request = server.requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/a%20b/c?key=x%26y&empty=&key=z+1&bare");
    EXPECT_EQ(request.path, "/a%20b/c");
    EXPECT_EQ(request.queryParams, (LoopbackFields{{"key", "x&y"}, {"empty", ""}, {"key", "z 1"}, {"bare", ""}}));
    EXPECT_EQ(request.body, "payload");
    EXPECT_EQ(request.connection, 1U);
    EXPECT_EQ(request.ordinal, 1U);
    EXPECT_FALSE(request.isTLS);
    ASSERT_NE(request.findHeader("x-second"), nullptr);
    EXPECT_LT(request.findHeader("X-Second"), request.findHeader("X-First"));
    EXPECT_EQ(*request.findHeader("X-First"), "1");
    EXPECT_EQ(request.findHeader("X-Third"), nullptr);
}

TEST(LoopbackServer, KeepsAConnectionOpenForManyRequests) {
    LoopbackServer server(sayHello);
    PlainClient client;
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(client.send({.url = server.obtainURL()}).status, 200);
    }
    EXPECT_EQ(server.countConnections(), 1U);
    EXPECT_EQ(server.requests().back().ordinal, 300U);
}

TEST(LoopbackServer, ReadsAChunkedRequestBody) {
    LoopbackServer server(sayHello);
    PlainClient client;
    const std::string body(200'000, 'x');
    const auto response = client.send(
        {.method = "POST", .url = server.obtainURL(), .headers = {"Transfer-Encoding: chunked"}, .body = body});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(server.requests().front().body, body);
}

TEST(LoopbackServer, LetsAClientThatExpectsItSendItsBody) {
    LoopbackServer server(sayHello);
    PlainClient client;
    const auto response = client.send(
        {.method = "POST", .url = server.obtainURL(), .headers = {"Expect: 100-continue"}, .body = "payload"});
    EXPECT_NE(response.head.find("100 Continue"), std::string::npos);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(server.requests().front().body, "payload");
}

TEST(LoopbackServer, AnswersWhatIsNoRequestWith400) {
    LoopbackServer server(sayHello);
    PlainClient client;
    EXPECT_EQ(client.send({.url = server.obtainURL(), .headers = {"Content-Length: many"}}).status, 400);
    EXPECT_EQ(server.countMalformedRequests(), 1U);
    EXPECT_EQ(server.countRequests(), 0U);
}

TEST(LoopbackServer, AnswersAnExceptionOfTheHandlerWith500) {
    LoopbackServer server([](const LoopbackRequest&) -> LoopbackReply { throw std::runtime_error("no script"); });
    PlainClient client;
    const auto response = client.send({.url = server.obtainURL()});
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "no script");
}

TEST(LoopbackServer, SendsEveryFraming) {
    const std::string text(5000, 'y');
    for (const auto framing : {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
        for (const bool isCompressed : {false, true}) {
            LoopbackServer server(alwaysReply({.body = text, .framing = framing, .isCompressed = isCompressed}));
            PlainClient client;
            const auto response = client.send({.url = server.obtainURL()});
            EXPECT_EQ(response.code, CURLE_OK);
            EXPECT_EQ(response.body, text);
            EXPECT_EQ(response.head.find("gzip") != std::string::npos, isCompressed);
        }
    }
}

TEST(LoopbackServer, SendsRawBytesAsTheyStand) {
    LoopbackServer server(alwaysReply(
        {.raw = "HTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\nHTTP/1.1 200 Fine\r\nContent-Length: 2\r\n\r\nok"}));
    PlainClient client;
    const auto response = client.send({.url = server.obtainURL()});
    EXPECT_NE(response.head.find("103 Early Hints"), std::string::npos);
    EXPECT_NE(response.head.find("200 Fine"), std::string::npos);
    EXPECT_EQ(response.body, "ok");
}

TEST(LoopbackServer, SendsEndlessHeadersUntilTheClientGivesUp) {
    LoopbackServer server(alwaysReply({.raw = "HTTP/1.1 200 OK\r\n", .endless = "X-Filler: more and more\r\n"}));
    PlainClient client;
    EXPECT_EQ(client.send({.url = server.obtainURL()}).code, CURLE_RECV_ERROR);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(LoopbackServer, BreaksAConnectionBeforeTheReply) {
    LoopbackServer closing(alwaysReply({.fault = LoopbackFault::CloseBeforeReply}));
    LoopbackServer resetting(alwaysReply({.fault = LoopbackFault::ResetBeforeReply}));
    PlainClient client;
    EXPECT_EQ(client.send({.url = closing.obtainURL()}).code, CURLE_GOT_NOTHING);
    EXPECT_EQ(client.send({.url = resetting.obtainURL()}).code, CURLE_RECV_ERROR);
    EXPECT_EQ(resetting.countRequests(), 1U);
}

TEST(LoopbackServer, BreaksAConnectionInTheBody) {
    const std::string text(1000, 'z');
    LoopbackServer cutting(alwaysReply({.body = text, .fault = LoopbackFault::CutInBody, .faultAt = 10}));
    LoopbackServer cuttingChunks(
        alwaysReply({.body = text, .framing = LoopbackFraming::Chunked, .fault = LoopbackFault::CutInBody}));
    LoopbackServer resetting(alwaysReply({.body = text, .fault = LoopbackFault::ResetInBody}));
    PlainClient client;
    const auto cut = client.send({.url = cutting.obtainURL()});
    EXPECT_EQ(cut.code, CURLE_PARTIAL_FILE);
    EXPECT_EQ(cut.body, text.substr(0, 10));
    EXPECT_EQ(client.send({.url = cuttingChunks.obtainURL()}).code, CURLE_PARTIAL_FILE);
    EXPECT_EQ(client.send({.url = resetting.obtainURL()}).code, CURLE_RECV_ERROR);
}

TEST(LoopbackServer, StallsUntilReleased) {
    for (const auto fault : {LoopbackFault::StallBeforeReply, LoopbackFault::StallInBody}) {
        LoopbackServer server(alwaysReply({.body = "late", .fault = fault}));
        auto response = std::async(std::launch::async, [&] { return PlainClient().send({.url = server.obtainURL()}); });
        ASSERT_TRUE(server.waitForRequests(1));
        server.releaseStalls();
        EXPECT_EQ(response.get().body, "late");
    }
}

TEST(LoopbackServer, EndsAStallThatHasALimitByItself) {
    LoopbackServer server(alwaysReply({.body = "late", .fault = LoopbackFault::StallBeforeReply, .stallLimit = 20ms}));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(PlainClient().send({.url = server.obtainURL()}).body, "late");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(LoopbackServer, NoticesAClientThatLeavesAStall) {
    LoopbackServer server(alwaysReply({.fault = LoopbackFault::StallBeforeReply}));
    PlainClient client;
    client.limitTime(50ms);
    EXPECT_EQ(client.send({.url = server.obtainURL()}).code, CURLE_OPERATION_TIMEDOUT);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(LoopbackServer, DripsABody) {
    LoopbackServer server(alwaysReply({.body = "abcdefgh", .dripBytes = 2, .dripInterval = 5ms}));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(PlainClient().send({.url = server.obtainURL()}).body, "abcdefgh");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 15ms);
}

TEST(LoopbackServer, SendsABodyInPieces) {
    const std::vector<std::string> pieces{"abc", "d", "efgh"};
    for (const auto framing : {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
        LoopbackServer server(alwaysReply({.framing = framing, .pieces = pieces, .pieceInterval = 5ms}));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(PlainClient().send({.url = server.obtainURL()}).body, "abcdefgh");
        EXPECT_GE(std::chrono::steady_clock::now() - start, 10ms);
    }
}

TEST(LoopbackServer, LetsAClientReadEachPieceBeforeTheNextOne) {
    for (const bool isCompressed : {false, true}) {
        LoopbackServer server(alwaysReply({.framing = LoopbackFraming::Chunked,
                                           .isCompressed = isCompressed,
                                           .pieces = {"one ", "two ", "three"},
                                           .fault = LoopbackFault::StallInBody,
                                           .faultAfterPieces = 2}));
        PlainClient client;
        std::string seen;
        client.watchBody([&](std::string_view bytes) {
            seen += bytes;
            if (seen == "one two ") {
                server.releaseStalls();
            }
        });
        EXPECT_EQ(client.send({.url = server.obtainURL()}).code, CURLE_OK);
        EXPECT_EQ(seen, "one two three");
    }
}

TEST(LoopbackServer, CutsABodyAfterAPiece) {
    const LoopbackReply reply{.framing = LoopbackFraming::Chunked,
                              .pieces = {"one ", "two ", "three"},
                              .fault = LoopbackFault::CutInBody,
                              .faultAfterPieces = 1};
    LoopbackServer server(alwaysReply(reply));
    const auto response = PlainClient().send({.url = server.obtainURL()});
    EXPECT_EQ(response.body, "one ");
    EXPECT_NE(response.code, CURLE_OK);
}

TEST(LoopbackServer, StopsWhileItStallsAndDrips) {
    LoopbackServer stalling(alwaysReply({.fault = LoopbackFault::StallBeforeReply}));
    LoopbackServer dripping(alwaysReply({.body = "abcdefgh", .dripBytes = 1, .dripInterval = 1h}));
    auto stalled = std::async(std::launch::async, [&] { return PlainClient().send({.url = stalling.obtainURL()}); });
    auto dripped = std::async(std::launch::async, [&] { return PlainClient().send({.url = dripping.obtainURL()}); });
    ASSERT_TRUE(stalling.waitForRequests(1));
    ASSERT_TRUE(dripping.waitForRequests(1));
    stalling.stop();
    dripping.stop();
    EXPECT_NE(stalled.get().code, CURLE_OK);
    EXPECT_NE(dripped.get().code, CURLE_OK);
    EXPECT_EQ(stalling.countOpenConnections(), 0U);
    EXPECT_EQ(stalling.countRequests(), 1U);
    EXPECT_EQ(PlainClient().send({.url = stalling.obtainURL()}).code, CURLE_COULDNT_CONNECT);
}

TEST(LoopbackServer, ClosesConnectionsThatAreIdle) {
    LoopbackServer server(sayHello);
    PlainClient client;
    EXPECT_EQ(client.send({.url = server.obtainURL()}).status, 200);
    server.closeConnections();
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(client.send({.url = server.obtainURL()}).status, 200);
    EXPECT_EQ(server.countConnections(), 2U);
}

TEST(LoopbackServer, ClosesAfterAReplyThatSaysNothingOfIt) {
    LoopbackServer server(alwaysReply({.body = "bye", .isClosedAfter = true}));
    PlainClient client;
    const auto response = client.send({.url = server.obtainURL()});
    EXPECT_EQ(response.body, "bye");
    EXPECT_EQ(response.head.find("Connection"), std::string::npos);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(LoopbackServer, AcceptsButSaysNothingWhenSilent) {
    LoopbackServer server(sayHello, {.isSilent = true});
    auto response = std::async(std::launch::async, [&] { return PlainClient().send({.url = server.obtainURL()}); });
    ASSERT_TRUE(server.waitForConnections(1));
    server.stop();
    EXPECT_NE(response.get().code, CURLE_OK);
    EXPECT_EQ(server.countRequests(), 0U);
}

TEST(LoopbackServer, CountsWithoutRecording) {
    LoopbackServer server(sayHello, {.isRecording = false});
    EXPECT_EQ(PlainClient().send({.url = server.obtainURL()}).status, 200);
    EXPECT_EQ(server.countRequests(), 1U);
    EXPECT_TRUE(server.requests().empty());
}

TEST(LoopbackServer, ServesSeveralConnectionsAtOnce) {
    LoopbackServer server(alwaysReply({.body = "late", .fault = LoopbackFault::StallBeforeReply}));
    std::vector<std::future<PlainResponse>> responses;
    responses.reserve(20);
    for (int i = 0; i < 20; ++i) {
        responses.push_back(
            std::async(std::launch::async, [&] { return PlainClient().send({.url = server.obtainURL()}); }));
    }
    ASSERT_TRUE(server.waitForRequests(20));
    server.releaseStalls();
    for (auto& response : responses) {
        EXPECT_EQ(response.get().body, "late");
    }
    EXPECT_EQ(server.countConnections(), 20U);
}

TEST(LoopbackServer, SpeaksTLSUnderBothItsNames) {
    LoopbackServer server(sayHello, {.tls = LoopbackTLS::Valid});
    PlainClient client(server.obtainCAFile());
    EXPECT_EQ(client.send({.url = server.obtainURL()}).body, "hello");
    EXPECT_EQ(client.send({.url = server.obtainURL()}).body, "hello");
    EXPECT_EQ(server.countHandshakes(), 1U);
    EXPECT_TRUE(server.requests().front().isTLS);
    EXPECT_EQ(PlainClient(server.obtainCAFile()).send({.url = "https://" + server.obtainAuthority("localhost")}).body,
              "hello");
    EXPECT_EQ(server.countHandshakes(), 2U);
}

TEST(LoopbackServer, ShowsCertificatesThatAreToBeRefused) {
    for (const auto kind : {LoopbackTLS::WrongHostName, LoopbackTLS::Expired, LoopbackTLS::SelfSigned}) {
        LoopbackServer server(sayHello, {.tls = kind});
        EXPECT_EQ(PlainClient(server.obtainCAFile()).send({.url = server.obtainURL()}).code,
                  CURLE_PEER_FAILED_VERIFICATION);
        EXPECT_EQ(server.countRequests(), 0U);
    }
}

TEST(LoopbackServer, IsUntrustedWithoutItsCAFile) {
    LoopbackServer server(sayHello, {.tls = LoopbackTLS::Valid});
    EXPECT_EQ(PlainClient().send({.url = server.obtainURL()}).code, CURLE_PEER_FAILED_VERIFICATION);
}

TEST(LoopbackServer, RemovesItsCAFile) {
    std::string file;
    {
        LoopbackServer server(sayHello, {.tls = LoopbackTLS::Valid});
        file = server.obtainCAFile();
        EXPECT_TRUE(std::filesystem::exists(file));
    }
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(LoopbackServer, BreaksTLSConnectionsToo) {
    const std::string text(1000, 'z');
    PlainResponse response;
    for (const auto fault : {LoopbackFault::CloseBeforeReply, LoopbackFault::ResetBeforeReply, LoopbackFault::CutInBody,
                             LoopbackFault::ResetInBody}) {
        LoopbackServer server(alwaysReply({.body = text, .fault = fault}), {.tls = LoopbackTLS::Valid});
        response = PlainClient(server.obtainCAFile()).send({.url = server.obtainURL()});
        EXPECT_NE(response.code, CURLE_OK) << static_cast<int>(fault);
        EXPECT_EQ(server.countRequests(), 1U);
    }
}

TEST(LoopbackServer, RefusesAPortThatIsTaken) {
    LoopbackServer server(sayHello);
    EXPECT_THROW(LoopbackServer(sayHello, {.port = server.obtainPort()}), std::runtime_error);
}
