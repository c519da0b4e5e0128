#include "rest/rest_body.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Bodies of requests that are sent in pieces, from where they lie.

namespace {

std::vector<COJsonPiece> makePieces(const std::vector<std::string>& texts) {
    return RestPiecesBody(texts).obtainJsonPieces();
}

/// What is read with room for `capacity` bytes at a time.
std::string readAll(cf::BodyReader& reader, std::size_t capacity) {
    std::string text;
    std::string room(capacity, '\0');
    while (const std::size_t count = reader.read(room.data(), room.size())) {
        text.append(room, 0, count);
    }
    return text;
}

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "ok"};
}

}  // namespace

TEST(BodyReader, JoinsThePiecesWhateverTheRoom) {
    const auto pieces = makePieces({"", "one", "", "two", "three", ""});
    EXPECT_EQ(cf::countBytes(pieces), 11U);
    for (std::size_t capacity = 1; capacity <= 12; ++capacity) {
        cf::BodyReader reader(pieces);
        EXPECT_EQ(readAll(reader, capacity), "onetwothree") << capacity;
        EXPECT_EQ(readAll(reader, capacity), "") << capacity;
    }
}

TEST(BodyReader, GoesOnWithAnyByte) {
    const auto pieces = makePieces({"", "one", "", "two", "three", ""});
    const std::string whole = "onetwothree";
    cf::BodyReader reader(pieces);
    for (std::size_t offset = 0; offset <= whole.size(); ++offset) {
        EXPECT_TRUE(reader.seek(offset));
        EXPECT_EQ(readAll(reader, 4), whole.substr(offset));
    }
    EXPECT_FALSE(reader.seek(whole.size() + 1));
}

TEST(BodyReader, HasNothingToReadWithoutABody) {
    cf::BodyReader reader;
    EXPECT_TRUE(reader.seek(0));
    EXPECT_FALSE(reader.seek(1));
    EXPECT_EQ(readAll(reader, 4), "");
}

TEST(ICOJsonValue, GivesOnePieceUnlessOverridden) {
    std::vector<COJsonPiece> pieces;
    {
        const RestTextBody body("text");
        pieces = body.obtainJsonPieces();
    }
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].text, "\"text\"");
    EXPECT_NE(pieces[0].owner, nullptr);
}

TEST(CMRestPostRequest, SendsABodyInPieces) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answerOK, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        caller.recordTrace();
        for (const std::size_t size : {0U, 1U, 1'000U, 70'000U, 3'000'000U}) {
            const std::string middle(size, 'm');
            const RestPiecesBody body({"[", middle, "", "]"});
            EXPECT_EQ(caller.post(server.obtainURL(), &body).code, 0);
            const LoopbackRequest request = server.requests().back();
            EXPECT_TRUE(request.body == "[" + middle + "]") << size;
            ASSERT_NE(request.findHeader("Content-Length"), nullptr);
            EXPECT_EQ(*request.findHeader("Content-Length"), std::to_string(size + 2));
            EXPECT_EQ(caller.records.back().requestBytes, size + 2);
        }
        EXPECT_EQ(server.countConnections(), 1U);
    }
}

TEST(CMRestPostRequest, SendsABodyWithoutAByte) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    const RestPiecesBody body({});
    EXPECT_EQ(caller.post(server.obtainURL(), &body).code, 0);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.body, "");
    ASSERT_NE(request.findHeader("Content-Type"), nullptr);
    EXPECT_EQ(*request.findHeader("Content-Type"), "application/json");
}

TEST(CMRestPostRequest, KeepsThePiecesWhileTheExchangeRuns) {
    LoopbackServer server(
        [](const LoopbackRequest&) { return LoopbackReply{.body = "ok", .fault = LoopbackFault::StallBeforeReply}; });
    RestCaller caller;
    CMRestPostRequest request;
    std::weak_ptr<const void> owner;
    {
        const RestPiecesBody body({"\"kept\""});
        owner = body.obtainJsonPieces()[0].owner;
        request.updateJson(&body);
    }
    request.setURL(server.obtainURL());
    caller.settings.cancelled = [&] {
        EXPECT_FALSE(owner.expired());
        server.releaseStalls();
        return false;
    };
    EXPECT_EQ(caller.post(request).code, 0);
    request.updateJson(nullptr);
    EXPECT_TRUE(owner.expired());
}

TEST(CMRestPostRequest, SendsTheWholeBodyAgainOnANewConnection) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const std::size_t size : {10U, 10'000U}) {
            LoopbackServer server(
                [](const LoopbackRequest&) { return LoopbackReply{.body = "ok", .isClosedAfter = true}; },
                {.tls = tls});
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            const RestPiecesBody body({"\"", std::string(size, 'b'), "\""});
            for (int round = 0; round < 30; ++round) {
                EXPECT_EQ(caller.post(server.obtainURL(), &body).text, "") << size;
            }
            for (const LoopbackRequest& request : server.requests()) {
                EXPECT_TRUE(request.body == "\"" + std::string(size, 'b') + "\"");
            }
            EXPECT_EQ(server.countMalformedRequests(), 0U);
        }
    }
}
