#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "loopback_server.h"
#include "loopback_socket.h"
#include "rest/rest_caller.h"

// What a server sends on a kept-alive connection without having been asked. It is never a response.

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kUnasked = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwrong";
constexpr std::string_view kIdleTimeout =
    "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";

/// Replies with the request's ordinal, and to the first with `late` behind it.
LoopbackServer::Handler answerOnceWithLateBytes(std::string_view late, std::chrono::milliseconds delay,
                                                bool isClosedAfter = false) {
    return [=](const LoopbackRequest& request) {
        LoopbackReply reply{.body = std::to_string(request.ordinal)};
        if (request.ordinal == 1) {
            reply.late = late;
            reply.lateDelay = delay;
            reply.isClosedAfter = isClosedAfter;
        }
        return reply;
    };
}

/// Reads from a plain client until `end` has come; gives all that came.
std::string readUntil(int client, std::string_view end) {
    std::string text;
    std::array<char, 65536> buffer{};
    std::size_t searchStart = 0;
    while (text.find(end, searchStart) == std::string::npos) {
        searchStart = text.size() - std::min(text.size(), end.size());
        const ssize_t count = recv(client, buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            break;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

void sendAll(int client, std::string_view bytes) {
    EXPECT_EQ(send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

/// Answers the first request of a new connection, whose body is "b", with "first", and returns the connection when the
/// head of the second has come, but not its body: what is sent then cannot be meant for it.
int acceptSecondHead(const LoopbackListener& listener) {
    const int client = listener.accept();
    readUntil(client, "\"b\"");
    sendAll(client, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfirst");
    readUntil(client, "\r\n\r\n");
    return client;
}

/// What the system says of every connection's shortest round trip while this lives. On the loopback it is so short that
/// no server could answer within it.
class ShortestRoundTrip {
public:
    explicit ShortestRoundTrip(std::uint32_t microseconds) { s_microseconds = microseconds; }
    ~ShortestRoundTrip() { s_microseconds = kMeasured; }
    ShortestRoundTrip(const ShortestRoundTrip&) = delete;
    ShortestRoundTrip& operator=(const ShortestRoundTrip&) = delete;

    static void change(tcp_info& info) {
        const std::int64_t microseconds = s_microseconds;
        if (microseconds != kMeasured) {
            info.tcpi_min_rtt = static_cast<std::uint32_t>(microseconds);
        }
    }

private:
    static constexpr std::int64_t kMeasured = -1;
    static inline std::atomic<std::int64_t> s_microseconds = kMeasured;
};

/// Replies with the request's ordinal, after a pause.
LoopbackServer::Handler answerAfter(std::chrono::milliseconds pause) {
    return [pause](const LoopbackRequest& request) {
        return LoopbackReply{.body = std::to_string(request.ordinal),
                             .fault = pause > 0ms ? LoopbackFault::StallBeforeReply : LoopbackFault::None,
                             .stallLimit = pause};
    };
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int getsockopt(int descriptor, int level, int option, void* value,
                                                                 socklen_t* size) noexcept {
    using Function = int (*)(int, int, int, void*, socklen_t*);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getsockopt"));
    const int result = system(descriptor, level, option, value, size);
    // A kernel may know fewer members than the header, or more.
    constexpr std::size_t kNeeded = offsetof(tcp_info, tcpi_min_rtt) + sizeof(tcp_info::tcpi_min_rtt);
    if (result == 0 && level == IPPROTO_TCP && option == TCP_INFO && *size >= kNeeded) {
        ShortestRoundTrip::change(*static_cast<tcp_info*>(value));
    }
    return result;
}

TEST(RestLateBytes, AreNotTheNextResponse) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answerOnceWithLateBytes(kUnasked, 30ms), {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        caller.recordTrace();
        EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
        ASSERT_TRUE(server.waitForLateBytes(1));
        EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "2");
        EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "3");
        EXPECT_EQ(server.countConnections(), 2U);
        EXPECT_FALSE(caller.records.at(1).connectionReused);
        EXPECT_TRUE(caller.records.at(2).connectionReused);
    }
}

TEST(RestLateBytes, AreNotTheNextResponseWhateverTheRequest) {
    LoopbackServer server([](const LoopbackRequest& request) {
        return LoopbackReply{.body = std::to_string(request.ordinal), .late = std::string(kUnasked)};
    });
    RestCaller caller;
    for (std::size_t round = 0; round < 10; ++round) {
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), std::to_string(3 * round + 1));
        ASSERT_TRUE(server.waitForLateBytes(3 * round + 1));
        EXPECT_EQ(caller.remove(server.obtainURL()).obtainBody(), std::to_string(3 * round + 2));
        ASSERT_TRUE(server.waitForLateBytes(3 * round + 2));
        EXPECT_EQ(caller.post(server.obtainURL(), std::string(100'000, 'b')).obtainBody(),
                  std::to_string(3 * round + 3));
        ASSERT_TRUE(server.waitForLateBytes(3 * round + 3));
    }
}

TEST(RestLateBytes, AreNotTheNextResponseWhereTheyCameWithTheLast) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const std::size_t size : {0U, 5U, 15'000U, 20'000U}) {
            for (const bool isChunked : {false, true}) {
                const std::string body(size, 'b');
                std::array<char, 32> hexadecimal{};
                std::snprintf(hexadecimal.data(), hexadecimal.size(), "%zx\r\n", size);
                const std::string framed = isChunked
                                               ? "Transfer-Encoding: chunked\r\n\r\n" +
                                                     (size == 0 ? "" : hexadecimal.data() + body + "\r\n") + "0\r\n\r\n"
                                               : "Content-Length: " + std::to_string(size) + "\r\n\r\n" + body;
                LoopbackServer server(
                    [&](const LoopbackRequest& request) {
                        return request.ordinal == 1
                                   ? LoopbackReply{.raw = "HTTP/1.1 200 OK\r\n" + framed + std::string(kUnasked)}
                                   : LoopbackReply{.body = "right"};
                    },
                    {.tls = tls});
                RestCaller caller;
                caller.settings.caBundleFile = server.obtainCAFile();
                EXPECT_TRUE(caller.post(server.obtainURL(), "b").obtainBody() == body);
                EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "right") << size << isChunked;
            }
        }
    }
}

TEST(RestLateBytes, OfAnIdleTimeoutDoNotFailTheNextRequest) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const bool isClosedAfter : {false, true}) {
            LoopbackServer server(answerOnceWithLateBytes(kIdleTimeout, 10ms, isClosedAfter), {.tls = tls});
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
            ASSERT_TRUE(server.waitForLateBytes(1));
            EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "2");
            EXPECT_EQ(server.countRequests(), 2U);
        }
    }
}

TEST(RestLateBytes, AreDroppedWithoutTheirConnectionBeingUsedAgain) {
    // Nothing must be sent on it: the server might act on it.
    LoopbackServer server(answerOnceWithLateBytes("x", 0ms));
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
    ASSERT_TRUE(server.waitForLateBytes(1));
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "2");
    EXPECT_EQ(server.requests().at(1).connection, 2U);
    EXPECT_EQ(server.countRequests(), 2U);
}

TEST(RestLateBytes, OfOneServerLeaveTheConnectionsToOthersAlone) {
    LoopbackServer noisy(answerOnceWithLateBytes(kUnasked, 0ms));
    LoopbackServer other([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; });
    RestCaller caller;
    EXPECT_EQ(caller.get(other.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(caller.get(noisy.obtainURL()).obtainBody(), "1");
    ASSERT_TRUE(noisy.waitForLateBytes(1));
    EXPECT_EQ(caller.get(noisy.obtainURL()).obtainBody(), "2");
    EXPECT_EQ(caller.get(other.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(other.countConnections(), 1U);
}

TEST(RestLateBytes, ThatComeWhileTheRequestIsSentAreNotItsResponse) {
    const LoopbackListener listener(0);
    std::string second;
    std::thread server([&] {
        const LoopbackBlockedSignals signals;
        const int first = acceptSecondHead(listener);
        sendAll(first, kUnasked);
        const int client = listener.accept();
        close(first);
        second = readUntil(client, "m\"");
        sendAll(client, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nright");
        close(client);
    });
    RestCaller caller;
    const std::string url = "http://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/";
    EXPECT_EQ(caller.post(url, "b").obtainBody(), "first");
    EXPECT_EQ(caller.post(url, std::string(20'000'000, 'm')).obtainBody(), "right");
    listener.stop();
    server.join();
    EXPECT_GT(second.size(), 20'000'000U);
}

TEST(RestLateBytes, LeaveTheRepeatedRequestWhatIsLeftOfItsTime) {
    const LoopbackListener listener(0);
    std::chrono::steady_clock::duration took{};
    std::thread server([&] {
        const LoopbackBlockedSignals signals;
        const int first = acceptSecondHead(listener);
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(600ms);  // of the request's time; after a second it would not be repeated
        sendAll(first, kUnasked);
        const int client = listener.accept();
        readUntil(client, "(never)");
        took = std::chrono::steady_clock::now() - start;
        close(client);
        close(first);
    });
    RestCaller caller;
    const std::string url = "http://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/";
    EXPECT_EQ(caller.post(url, "b").obtainBody(), "first");
    caller.settings.requestTimeout = 2000ms;
    EXPECT_EQ(caller.post(url, std::string(20'000'000, 'm')).code,
              static_cast<std::int32_t>(CMRestResult::RequestTimeout));
    listener.stop();
    server.join();
    EXPECT_LT(took, 2400ms) << "with its whole time anew 2.6 seconds";
}

TEST(RestLateBytes, DoNotIncludeARefusalOfABodyThatIsStillSentOnANewConnection) {
    const LoopbackListener listener(0);
    std::thread server([&] {
        const LoopbackBlockedSignals signals;
        const int client = listener.accept();
        readUntil(client, "\r\n\r\n");
        sendAll(client, "HTTP/1.1 413 Content Too Large\r\nContent-Length: 5\r\n\r\nlarge");
        readUntil(client, "m\"");
        close(client);
    });
    RestCaller caller;
    const std::string url = "http://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/";
    const RestResult result = caller.post(url, std::string(20'000'000, 'm'));
    EXPECT_EQ(result.code, 413);
    EXPECT_EQ(result.obtainBody(), "large");
    server.join();
}

TEST(RestLateBytes, DoNotIncludeARefusalOfARequestThatWasRead) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(
            [](const LoopbackRequest& request) {
                return request.ordinal % 2 == 1
                           ? LoopbackReply{.body = "ok"}
                           : LoopbackReply{.status = 408, .headers = {{"Connection", "close"}}, .body = "slow"};
            },
            {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        for (std::size_t round = 1; round <= 50; ++round) {
            EXPECT_EQ(caller.post(server.obtainURL(), "b").code, 0);
            const RestResult result = caller.post(server.obtainURL(), "b");
            EXPECT_EQ(result.code, 408);
            EXPECT_EQ(result.obtainBody(), "slow");
            EXPECT_EQ(server.countRequests(), 2 * round);
        }
    }
}

TEST(RestLateBytes, AreNotExpectedOfTLSWhichSendsItsTicketsBeforeTheResponse) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; },
                          {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    }
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestLateBytes, AreThoseThatComeWithinTheShortestRoundTripAfterTheRequest) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answerAfter(0ms), {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
        const ShortestRoundTrip roundTrip(900'000);
        EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "3") << "sent again on a new connection";
        EXPECT_EQ(server.requests().at(1).connection, 1U);
        EXPECT_EQ(server.requests().at(2).connection, 2U);
        EXPECT_EQ(server.countRequests(), 3U);
    }
}

TEST(RestLateBytes, AreNotThoseThatComeAfterTheShortestRoundTrip) {
    LoopbackServer server(answerAfter(50ms));
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
    const ShortestRoundTrip roundTrip(10'000);
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "2");
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestLateBytes, AreNotToldByARoundTripThatTheSystemHasNotMeasured) {
    LoopbackServer server(answerAfter(0ms));
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "1");
    const ShortestRoundTrip roundTrip(~std::uint32_t{0});
    EXPECT_EQ(caller.post(server.obtainURL(), "b").obtainBody(), "2");
    EXPECT_EQ(server.countConnections(), 1U);
}
