#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Responses whose body is handed over as it comes.

namespace {

using namespace std::chrono_literals;

/// A request that keeps what it is told.
struct ReceivingRequest {
    explicit ReceivingRequest(const std::string& url) {
        request.setURL(url);
        const RestTextBody body("b");
        request.updateJson(&body);
        request.setBodyReceiver([this](std::string_view bytes) { pieces.emplace_back(bytes); });
    }

    [[nodiscard]] std::string join() const {
        std::string text;
        for (const std::string& piece : pieces) {
            text += piece;
        }
        return text;
    }

    CMRestPostRequest request;
    std::vector<std::string> pieces;
};

LoopbackServer::Handler answer(LoopbackReply reply) {
    return [reply = std::move(reply)](const LoopbackRequest&) { return reply; };
}

}  // namespace

TEST(CMRestBodyReceiver, IsToldOfTheBodyAndLeavesNoneInTheResponse) {
    std::string text;
    for (int line = 0; line < 5000; ++line) {
        text += "line " + std::to_string(line) + "\n";
    }
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const bool isCompressed : {false, true}) {
            for (const LoopbackFraming framing :
                 {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
                LoopbackServer server(answer({.body = text, .framing = framing, .isCompressed = isCompressed}),
                                      {.tls = tls});
                RestCaller caller;
                caller.settings.caBundleFile = server.obtainCAFile();
                caller.recordTrace();
                ReceivingRequest receiving(server.obtainURL());
                const RestResult result = caller.post(receiving.request);
                EXPECT_EQ(result.code, 0);
                EXPECT_EQ(result.obtainBody(), "");
                EXPECT_TRUE(receiving.join() == text);
                EXPECT_EQ(caller.records.at(0).responseBytes, text.size());
                EXPECT_GT(caller.records.at(0).firstByte, 0us);
            }
        }
    }
}

TEST(CMRestBodyReceiver, IsToldOfAPieceBeforeTheNextOneComes) {
    LoopbackServer server(answer({.body = "firstsecond", .fault = LoopbackFault::StallInBody, .faultAt = 5}));
    RestCaller caller;
    ReceivingRequest receiving(server.obtainURL());
    receiving.request.setBodyReceiver([&](std::string_view bytes) {
        receiving.pieces.emplace_back(bytes);
        server.releaseStalls();
    });
    // On a kept connection: while it connects, libcurl wakes up by itself.
    EXPECT_EQ(caller.post(receiving.request).code, 0);
    receiving.pieces.clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(caller.post(receiving.request).code, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << "the network was waited for before the piece was told";
    EXPECT_EQ(receiving.pieces, (std::vector<std::string>{"first", "second"}));
}

TEST(CMRestBodyReceiver, IsNotToldOfABodyWithAnotherStatus) {
    for (const int status : {300, 400, 404, 500, 599}) {
        LoopbackServer server(answer({.status = status, .body = "why"}));
        RestCaller caller;
        ReceivingRequest receiving(server.obtainURL());
        const RestResult result = caller.post(receiving.request);
        EXPECT_EQ(result.code, status);
        EXPECT_EQ(result.obtainBody(), "why");
        EXPECT_TRUE(receiving.pieces.empty());
    }
}

TEST(CMRestBodyReceiver, IsToldOfEachStatusOfSuccess) {
    for (const int status : {200, 201, 299}) {
        LoopbackServer server(answer({.status = status, .body = "fine"}));
        RestCaller caller;
        ReceivingRequest receiving(server.obtainURL());
        EXPECT_EQ(caller.post(receiving.request).code, 0);
        EXPECT_EQ(receiving.join(), "fine");
    }
}

TEST(CMRestBodyReceiver, IsNotCalledForAnEmptyBody) {
    LoopbackServer server(answer({.status = 204}));
    RestCaller caller;
    ReceivingRequest receiving(server.obtainURL());
    EXPECT_EQ(caller.post(receiving.request).code, 0);
    EXPECT_TRUE(receiving.pieces.empty());
}

TEST(CMRestBodyReceiver, EndsTheExchangeByAnException) {
    LoopbackServer server(answer({.body = "firstsecond", .fault = LoopbackFault::StallInBody, .faultAt = 5}));
    RestCaller caller;
    caller.recordTrace();
    ReceivingRequest receiving(server.obtainURL());
    receiving.request.setBodyReceiver([](std::string_view) { throw std::runtime_error("from the host"); });
    EXPECT_THROW(caller.post(receiving.request), std::runtime_error);
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].resultCode, static_cast<std::int32_t>(CMRestResult::Interrupted));
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(CMRestBodyReceiver, MayRunAnotherExchangeOnTheSamePool) {
    LoopbackServer server([](const LoopbackRequest& request) {
        return request.method == "GET" ? LoopbackReply{.body = "inner"}
                                       : LoopbackReply{.body = "outer body", .dripBytes = 2};
    });
    RestCaller caller;
    ReceivingRequest receiving(server.obtainURL());
    receiving.request.setBodyReceiver([&](std::string_view bytes) {
        receiving.pieces.emplace_back(bytes);
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "inner");
    });
    EXPECT_EQ(caller.post(receiving.request).code, 0);
    EXPECT_EQ(receiving.join(), "outer body");
}

TEST(CMRestBodyReceiver, IsFollowedByTheQuestionWhetherToCancel) {
    LoopbackServer server(answer({.body = "firstsecond", .fault = LoopbackFault::StallInBody, .faultAt = 5}));
    RestCaller caller;
    ReceivingRequest receiving(server.obtainURL());
    bool isCancelled = false;
    caller.settings.cancelled = [&] { return isCancelled; };
    receiving.request.setBodyReceiver([&](std::string_view bytes) {
        receiving.pieces.emplace_back(bytes);
        isCancelled = true;
        server.releaseStalls();
    });
    const RestResult result = caller.post(receiving.request);
    EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::Cancelled));
    EXPECT_EQ(result.response, nullptr);
    EXPECT_EQ(receiving.pieces, std::vector<std::string>{"first"});
}

TEST(CMRestBodyReceiver, CountsAgainstTheLimitOfTheBody) {
    for (const bool isCompressed : {false, true}) {
        LoopbackServer server(
            answer({.body = std::string(100'001, 'b'), .isCompressed = isCompressed, .dripBytes = 50'000}));
        RestCaller caller;
        caller.settings.maxResponseBytes = 100'000;
        ReceivingRequest receiving(server.obtainURL());
        EXPECT_EQ(caller.post(receiving.request).code, static_cast<std::int32_t>(CMRestResult::OversizedResponse));
        EXPECT_LE(receiving.join().size(), 100'000U);
        caller.settings.maxResponseBytes = 100'001;
        EXPECT_EQ(caller.post(receiving.request).code, 0);
    }
}

TEST(CMRestBodyReceiver, IsFollowedByAnErrorWhenTheBodyIsCut) {
    LoopbackServer server(answer({.body = "0123456789", .fault = LoopbackFault::CutInBody, .faultAt = 4}));
    RestCaller caller;
    ReceivingRequest receiving(server.obtainURL());
    EXPECT_EQ(caller.post(receiving.request).code, static_cast<std::int32_t>(CMRestResult::BrokenConnection));
    EXPECT_EQ(receiving.join(), "0123");
}
