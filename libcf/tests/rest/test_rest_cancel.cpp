#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// What the host's functions may do to an exchange: cancel it, throw, run another one.

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* kCancelled = "The request was cancelled";

LoopbackServer::Handler answer(LoopbackReply reply) {
    return [reply = std::move(reply)](const LoopbackRequest&) { return reply; };
}

/// Stalls on the path "/stall", answers "ok" elsewhere.
LoopbackReply stallOnDemand(const LoopbackRequest& request) {
    const bool isStalled = request.path == "/stall";
    return {.body = "ok", .fault = isStalled ? LoopbackFault::StallBeforeReply : LoopbackFault::None};
}

}  // namespace

TEST(RestCancel, SendsNothingWhenCancelledFromTheStart) {
    LoopbackServer server(answer({}));
    RestCaller caller;
    caller.recordTrace();
    caller.settings.cancelled = [] { return true; };
    const RestResult result = caller.get(server.obtainURL());
    EXPECT_EQ(result.text, kCancelled);
    EXPECT_EQ(result.response, nullptr);
    EXPECT_EQ(server.countConnections(), 0U);
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].status, 0);
    EXPECT_EQ(caller.records[0].resultCode, result.code);
}

TEST(RestCancel, KeepsThePoolsConnectionsWhenCancelledFromTheStart) {
    LoopbackServer server(answer({.body = "ok"}));
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    caller.settings.cancelled = [] { return true; };
    EXPECT_EQ(caller.get(server.obtainURL()).text, kCancelled);
    caller.settings.cancelled = []() -> bool { throw std::runtime_error("from cancelled"); };
    EXPECT_THROW(caller.get(server.obtainURL()), std::runtime_error);
    caller.settings.cancelled = nullptr;
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestCancel, EndsAnExchangeThatWaitsAtOnce) {
    LoopbackServer server(stallOnDemand);
    RestCaller caller;
    caller.recordTrace();
    Clock::time_point saidSo;
    caller.settings.cancelled = [&] {
        if (server.countRequests() == 0) {
            return false;
        }
        saidSo = Clock::now();
        return true;
    };
    const RestResult result = caller.post(server.obtainURL("/stall"), "b");
    EXPECT_LT(Clock::now() - saidSo, 2s);
    EXPECT_EQ(result.text, kCancelled);
    EXPECT_EQ(result.response, nullptr);
    EXPECT_EQ(caller.records.size(), 1U);
    // The server sees the connection end, and the pool serves on.
    EXPECT_TRUE(server.waitForOpenConnections(0));
    caller.settings.cancelled = nullptr;
    EXPECT_EQ(caller.get(server.obtainURL("/")).obtainBody(), "ok");
}

TEST(RestCancel, EndsAnExchangeInItsBody) {
    LoopbackServer server(answer({.body = "0123456789", .fault = LoopbackFault::StallInBody}));
    RestCaller caller;
    caller.settings.cancelled = [&] { return server.countRequests() > 0; };
    EXPECT_EQ(caller.get(server.obtainURL()).text, kCancelled);
}

TEST(RestCancel, EndsAnExchangeThatStillConnects) {
    LoopbackServer server(answer({}), {.tls = LoopbackTLS::Valid, .isSilent = true});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    caller.settings.cancelled = [&] { return server.countConnections() > 0; };
    EXPECT_EQ(caller.get(server.obtainURL()).text, kCancelled);
}

TEST(RestCancel, AsksAtLeastTenTimesASecondWhileItWaits) {
    LoopbackServer server(stallOnDemand);
    RestCaller caller;
    std::vector<Clock::time_point> asked;
    caller.settings.cancelled = [&] {
        asked.push_back(Clock::now());
        return asked.size() == 20;
    };
    EXPECT_EQ(caller.get(server.obtainURL("/stall")).text, kCancelled);
    ASSERT_EQ(asked.size(), 20U);
    std::vector<Clock::duration> gaps;
    for (std::size_t index = 1; index < asked.size(); ++index) {
        gaps.push_back(asked[index] - asked[index - 1]);
    }
    // The median, since a busy machine may hold up a single answer.
    std::nth_element(gaps.begin(), gaps.begin() + gaps.size() / 2, gaps.end());
    EXPECT_LE(gaps[gaps.size() / 2], 100ms);
}

TEST(RestCancel, IsAskedByTimeNotByPacket) {
    LoopbackServer server(answer({.body = std::string(20'000'000, 'b'), .framing = LoopbackFraming::Chunked}));
    RestCaller caller;
    std::size_t questions = 0;
    caller.settings.cancelled = [&] {
        ++questions;
        return false;
    };
    const auto start = Clock::now();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    const auto intervals = static_cast<std::size_t>((Clock::now() - start) / 40ms);
    EXPECT_GE(questions, 1U);
    EXPECT_LE(questions, intervals + 1);
}

TEST(RestCancel, PassesItsExceptionThroughAndLeavesThePoolUsable) {
    LoopbackServer server(stallOnDemand);
    RestCaller caller;
    caller.recordTrace();
    caller.settings.cancelled = [&]() -> bool {
        if (server.countRequests() > 0) {
            throw std::runtime_error("from cancelled");
        }
        return false;
    };
    try {
        caller.get(server.obtainURL("/stall"));
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "from cancelled");
    }
    ASSERT_EQ(caller.records.size(), 1U);
    EXPECT_EQ(caller.records[0].status, 0);
    EXPECT_EQ(describeRestCode(caller.records[0].resultCode),
              "The request was interrupted by an error of the application");
    EXPECT_TRUE(server.waitForOpenConnections(0));
    caller.settings.cancelled = nullptr;
    EXPECT_EQ(caller.get(server.obtainURL("/")).obtainBody(), "ok");
}

TEST(RestCancel, LeavesNoResponseBehindWhenItThrows) {
    CMRestSession session;
    CMRestGlobalSettings settings;
    settings.cancelled = []() -> bool { throw std::runtime_error("from cancelled"); };
    ICSAppFactory* const factory = CF::obtainAppFactory();
    const std::unique_ptr<ICSRestClient> client(
        factory->obtainRestService()->createRestClient(factory, settings, &session));
    CMRestGetRequest request;
    request.setURL("http://127.0.0.1:1/");
    CMRestResourceResponse former(200, "of another request");
    CMRestResourceResponse* response = &former;
    EXPECT_THROW(client->runGet(request, response), std::runtime_error);
    EXPECT_EQ(response, nullptr);
}

TEST(RestCancel, PassesTheFirstExceptionThroughWhenTheTraceThrowsToo) {
    RestCaller caller;
    caller.settings.cancelled = []() -> bool { throw std::runtime_error("first"); };
    caller.settings.trace = [](const CMRestTraceRecord&) { throw std::logic_error("second"); };
    EXPECT_THROW(caller.get("http://127.0.0.1:1/"), std::runtime_error);
}

TEST(RestCancel, MayRunAnotherExchangeOnTheSamePool) {
    LoopbackServer server(stallOnDemand);
    RestCaller inner;
    RestCaller outer;
    inner.session.setPoolCenter(outer.pool.get());
    std::string innerBody;
    outer.settings.cancelled = [&] {
        if (server.countRequests() > 0 && innerBody.empty()) {
            innerBody = inner.get(server.obtainURL("/")).obtainBody();
            server.releaseStalls();
        }
        return false;
    };
    EXPECT_EQ(outer.get(server.obtainURL("/stall")).obtainBody(), "ok");
    EXPECT_EQ(innerBody, "ok");
    outer.settings.cancelled = nullptr;
    EXPECT_EQ(outer.get(server.obtainURL("/")).obtainBody(), "ok");
    EXPECT_EQ(server.countConnections(), 2U);
}

TEST(RestTrace, MayRunAnotherExchangeOnTheSameConnection) {
    LoopbackServer server(answer({.body = "ok"}));
    RestCaller caller;
    RestCaller inner;
    inner.session.setPoolCenter(caller.pool.get());
    std::string innerBody;
    caller.settings.trace = [&](const CMRestTraceRecord&) { innerBody = inner.get(server.obtainURL()).obtainBody(); };
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(innerBody, "ok");
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestTrace, PassesItsExceptionThroughAndLeavesThePoolUsable) {
    LoopbackServer server(answer({.body = "ok"}));
    RestCaller caller;
    caller.settings.trace = [](const CMRestTraceRecord&) { throw std::runtime_error("from trace"); };
    EXPECT_THROW(caller.get(server.obtainURL()), std::runtime_error);
    caller.settings.trace = nullptr;
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(server.countConnections(), 1U);
}
