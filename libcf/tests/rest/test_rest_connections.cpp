#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Which exchanges share a connection.

namespace {

using namespace std::chrono_literals;

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "ok"};
}

class HostPool final : public ICSHTTPPoolCenter {
public:
    explicit HostPool(bool& isDestroyed) : m_isDestroyed(isDestroyed) {}
    ~HostPool() override { m_isDestroyed = true; }

private:
    bool& m_isDestroyed;
};

}  // namespace

TEST(ICSHTTPPoolCenter, CarriesManyExchangesOnOneConnection) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.recordTrace();
    for (int turn = 0; turn < 100; ++turn) {
        EXPECT_EQ(caller.post(server.obtainURL(), "b").code, 0);
    }
    EXPECT_EQ(server.countRequests(), 100U);
    EXPECT_EQ(server.countConnections(), 1U);
    EXPECT_FALSE(caller.records.front().connectionReused);
    EXPECT_TRUE(caller.records.back().connectionReused);
}

TEST(ICSHTTPPoolCenter, CarriesManyExchangesInOneTLSHandshake) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    for (int turn = 0; turn < 100; ++turn) {
        EXPECT_EQ(caller.post(server.obtainURL(), "b").code, 0);
    }
    EXPECT_EQ(server.countRequests(), 100U);
    EXPECT_EQ(server.countConnections(), 1U);
    EXPECT_EQ(server.countHandshakes(), 1U);
}

TEST(ICSHTTPPoolCenter, KeepsAConnectionPastAFailureByStatus) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.status = 500, .body = "no"}; });
    RestCaller caller;
    caller.get(server.obtainURL());
    caller.get(server.obtainURL());
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(ICSHTTPPoolCenter, ClosesItsConnectionsWhenItIsDestroyed) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answerOK, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
        EXPECT_EQ(server.countOpenConnections(), 1U);
        caller.pool.reset();
        EXPECT_TRUE(server.waitForOpenConnections(0));
    }
}

TEST(ICSHTTPPoolCenter, PoolsInAHostsOwnClassToo) {
    bool isDestroyed = false;
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.pool = std::make_unique<HostPool>(isDestroyed);
    caller.session.setPoolCenter(caller.pool.get());
    caller.get(server.obtainURL());
    caller.get(server.obtainURL());
    EXPECT_EQ(server.countConnections(), 1U);
    caller.pool.reset();
    EXPECT_TRUE(isDestroyed);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(ICSHTTPPoolCenter, MayBeMissing) {
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.recordTrace();
    caller.session.setPoolCenter(nullptr);
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countConnections(), 2U);
    EXPECT_FALSE(caller.records.at(1).connectionReused);
}

TEST(ICSHTTPPoolCenter, SharesNothingWithAnotherPool) {
    LoopbackServer server(answerOK);
    RestCaller one;
    RestCaller other;
    one.get(server.obtainURL());
    other.get(server.obtainURL());
    EXPECT_EQ(server.countConnections(), 2U);
}

TEST(ICSHTTPPoolCenter, ConnectsAnewWhenTheServerHasClosedAnIdleConnection) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answerOK, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        for (std::size_t round = 1; round <= 3; ++round) {
            EXPECT_EQ(caller.post(server.obtainURL(), "b").code, 0);
            EXPECT_EQ(server.countRequests(), round);
            server.closeConnections();
            EXPECT_TRUE(server.waitForOpenConnections(0));
        }
        EXPECT_EQ(server.countConnections(), 3U);
        EXPECT_EQ(server.countResumedHandshakes(), tls == LoopbackTLS::Off ? 0U : 2U);
    }
}

TEST(ICSHTTPPoolCenter, ConnectsAnewWhenTheServerClosesWithoutAWordAfterEachResponse) {
    // The end of the connection and the next request may cross on their way.
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok", .isClosedAfter = true}; });
    RestCaller caller;
    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(caller.post(server.obtainURL(), "b").text, "");
    }
    EXPECT_EQ(server.countRequests(), 200U);
}

TEST(ICSHTTPPoolCenter, ConnectsAnewHoweverOftenTheServerClosesAtARequest) {
    // Each exchange but the first is closed on the kept connection and answered on a new one.
    LoopbackServer server([](const LoopbackRequest& request) {
        const bool isClosed = request.ordinal % 2 == 0;
        return LoopbackReply{.body = "ok", .fault = isClosed ? LoopbackFault::CloseBeforeReply : LoopbackFault::None};
    });
    RestCaller caller;
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok") << round;
    }
    EXPECT_EQ(server.countConnections(), 20U);
}

TEST(ICSHTTPPoolCenter, DoesNotSendAPostAgainThatTheServerMayBeWorkingOn) {
    bool isFirst = true;
    LoopbackServer server([&](const LoopbackRequest&) {
        const bool isStalled = !std::exchange(isFirst, false);
        return LoopbackReply{.raw = isStalled ? "" : "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
                             .fault = isStalled ? LoopbackFault::StallBeforeReply : LoopbackFault::None,
                             .stallLimit = 1200ms,
                             .isClosedAfter = isStalled};
    });
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), "b").code, 0);
    const RestResult result = caller.post(server.obtainURL(), "b");
    EXPECT_EQ(result.text, "The connection broke before the whole answer had arrived");
    EXPECT_EQ(server.countRequests(), 2U);
}

TEST(ICSHTTPPoolCenter, GivesARequestThatItSendsAgainOnlyWhatIsLeftOfItsTime) {
    LoopbackServer server([](const LoopbackRequest& request) {
        if (request.ordinal == 1) {
            return LoopbackReply{.body = "ok"};
        }
        const bool isLast = request.ordinal > 2;
        return LoopbackReply{.raw = "",
                             .fault = LoopbackFault::StallBeforeReply,
                             .stallLimit = isLast ? 0ms : 600ms,
                             .isClosedAfter = true};
    });
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    caller.settings.requestTimeout = 1000ms;
    const auto start = std::chrono::steady_clock::now();
    const RestResult result = caller.get(server.obtainURL());
    EXPECT_EQ(result.code, static_cast<std::int32_t>(CMRestResult::RequestTimeout));
    EXPECT_EQ(server.countRequests(), 3U);
    // Its whole time anew would be 1.6 seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
}

TEST(ICSHTTPPoolCenter, ObeysAServerThatAnnouncesTheEndOfTheConnection) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.headers = {{"Connection", "close"}}, .body = "ok"};
    });
    RestCaller caller;
    caller.get(server.obtainURL());
    caller.get(server.obtainURL());
    EXPECT_EQ(server.countConnections(), 2U);
}

TEST(ICSHTTPPoolCenter, KeepsConnectionsToSeveralServers) {
    LoopbackServer one(answerOK);
    LoopbackServer other(answerOK);
    RestCaller caller;
    for (int round = 0; round < 3; ++round) {
        caller.get(one.obtainURL());
        caller.get(other.obtainURL());
    }
    EXPECT_EQ(one.countConnections(), 1U);
    EXPECT_EQ(other.countConnections(), 1U);
}

TEST(ICSHTTPPoolCenter, UsesNoConnectionMadeUnderOtherTLSSettings) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::SelfSigned});
    RestCaller caller;
    caller.recordTrace();
    caller.settings.verifyPeer = false;
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    // The unchecked connection is still open; resuming its TLS session would skip the check as well.
    caller.settings.verifyPeer = true;
    caller.settings.caBundleFile = server.obtainCAFile();
    const RestResult result = caller.get(server.obtainURL());
    EXPECT_EQ(result.text, "The server's certificate is not trusted: no trusted authority has issued it");
    EXPECT_EQ(server.countRequests(), 1U);
    EXPECT_FALSE(caller.records.at(1).connectionReused);
}

TEST(ICSHTTPPoolCenter, UsesNoConnectionMadeUnderAnotherTrustStore) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    LoopbackServer other(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    caller.settings.caBundleFile = other.obtainCAFile();
    EXPECT_NE(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countRequests(), 1U);
    caller.settings.caBundleFile = server.obtainCAFile();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countResumedHandshakes(), 0U);
}

TEST(ICSHTTPPoolCenter, KeepsATLSConnectionWhileAPlainOneIsUsed) {
    LoopbackServer secure(answerOK, {.tls = LoopbackTLS::Valid});
    LoopbackServer plain(answerOK);
    RestCaller caller;
    caller.settings.caBundleFile = secure.obtainCAFile();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(caller.get(secure.obtainURL()).code, 0);
        EXPECT_EQ(caller.get(plain.obtainURL()).code, 0);
    }
    EXPECT_EQ(secure.countConnections(), 1U);
    EXPECT_EQ(plain.countConnections(), 1U);
}
