#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "loopback_server.h"
#include "loopback_socket.h"
#include "rest/rest_caller.h"

// Exchanges that fail on their way: each has its own words, and hands back no response.

namespace {

using namespace std::chrono_literals;

constexpr const char* kBroken = "The connection broke before the whole answer had arrived";
constexpr const char* kOversized = "The server's answer is larger than the limit";
constexpr const char* kMalformed = "The server's answer is not valid HTTP";
constexpr const char* kNoConnection =
    "No connection to the server: check the host and port, and that the server is running";
constexpr const char* kConnectTimeout = "Time-out: no connection to the server within the time limit";
constexpr const char* kRequestTimeout = "Time-out: the server did not finish its answer within the time limit";

void expectFailure(const RestResult& result, const std::string& text) {
    EXPECT_EQ(result.text, text);
    EXPECT_GT(result.code, 0);
    EXPECT_LT(result.code, 100);
    EXPECT_EQ(result.response, nullptr);
}

LoopbackServer::Handler answer(LoopbackReply reply) {
    return [reply = std::move(reply)](const LoopbackRequest&) { return reply; };
}

/// A port whose queue of connections is full, so that connecting to it never ends.
class DeafPort {
public:
    DeafPort() {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const general = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(m_listener, general, size), 0);
        EXPECT_EQ(listen(m_listener, 0), 0);
        EXPECT_EQ(getsockname(m_listener, general, &size), 0);
        m_port = ntohs(address.sin_port);
        for (int& filler : m_fillers) {
            filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            static_cast<void>(connect(filler, general, size));
        }
    }
    ~DeafPort() {
        for (const int filler : m_fillers) {
            close(filler);
        }
        close(m_listener);
    }
    DeafPort(const DeafPort&) = delete;
    DeafPort& operator=(const DeafPort&) = delete;

    [[nodiscard]] std::string obtainURL() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }

private:
    int m_listener = -1;
    std::uint16_t m_port = 0;
    std::array<int, 8> m_fillers{};
};

/// A port of loopback where nobody listens.
std::string obtainClosedURL() {
    LoopbackListener listener(0);
    const std::string url = "http://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/";
    listener.close();
    return url;
}

template <typename Function>
std::chrono::milliseconds measure(Function function) {
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace

TEST(RestFailure, NamesAServerThatIsNotThere) {
    RestCaller caller;
    caller.recordTrace();
    expectFailure(caller.get(obtainClosedURL()), kNoConnection);
    EXPECT_FALSE(caller.records.at(0).connectionReused);
}

TEST(RestFailure, NamesAHostThatCannotBeResolved) {
    RestCaller caller;
    caller.recordTrace();
    // A label of more than 63 bytes is refused by the resolver itself, without asking any server.
    expectFailure(caller.get("http://" + std::string(70, 'a') + ".invalid/"),
                  "The server's name cannot be resolved: check the host name and the network");
    EXPECT_FALSE(caller.records.at(0).connectionReused);
}

TEST(RestFailure, NamesAResetBeforeTheResponse) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answer({.fault = LoopbackFault::ResetBeforeReply}), {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        expectFailure(caller.post(server.obtainURL(), "b"), kBroken);
        EXPECT_EQ(server.countRequests(), 1U);
    }
}

TEST(RestFailure, NamesACloseBeforeTheResponse) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(answer({.fault = LoopbackFault::CloseBeforeReply}), {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        expectFailure(caller.post(server.obtainURL(), "b"), kBroken);
        EXPECT_EQ(server.countRequests(), 1U);
    }
}

TEST(RestFailure, NamesAResetWithinTheBody) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const LoopbackFraming framing :
             {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
            LoopbackServer server(
                answer({.body = std::string(50'000, 'b'), .framing = framing, .fault = LoopbackFault::ResetInBody}),
                {.tls = tls});
            RestCaller caller;
            caller.settings.caBundleFile = server.obtainCAFile();
            expectFailure(caller.get(server.obtainURL()), kBroken);
        }
    }
}

TEST(RestFailure, NamesABodyCutShort) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        for (const LoopbackFraming framing : {LoopbackFraming::ContentLength, LoopbackFraming::Chunked}) {
            for (const std::size_t place : {0U, 1U, 49'999U}) {
                LoopbackServer server(answer({.body = std::string(50'000, 'b'),
                                              .framing = framing,
                                              .fault = LoopbackFault::CutInBody,
                                              .faultAt = place}),
                                      {.tls = tls});
                RestCaller caller;
                caller.settings.caBundleFile = server.obtainCAFile();
                expectFailure(caller.get(server.obtainURL()), kBroken);
            }
        }
    }
}

TEST(RestFailure, NamesABodyThatEndsWithItsTLSConnectionButWithoutItsClose) {
    for (const std::size_t place : {0U, 100U}) {
        LoopbackServer server(answer({.body = std::string(50'000, 'b'),
                                      .framing = LoopbackFraming::UntilClose,
                                      .fault = LoopbackFault::CutInBody,
                                      .faultAt = place}),
                              {.tls = LoopbackTLS::Valid});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        expectFailure(caller.get(server.obtainURL()), kBroken);
    }
}

TEST(RestFailure, NamesAStallPastTheTimeLimit) {
    for (const LoopbackFault fault : {LoopbackFault::StallBeforeReply, LoopbackFault::StallInBody}) {
        LoopbackServer server(answer({.body = "0123456789", .fault = fault}));
        RestCaller caller;
        caller.settings.requestTimeout = 150ms;
        RestResult result;
        const auto took = measure([&] { result = caller.get(server.obtainURL()); });
        expectFailure(result, kRequestTimeout);
        EXPECT_GE(took, 140ms);
        EXPECT_LT(took, 10s);
    }
}

TEST(RestFailure, NamesADripThatLastsPastTheTimeLimit) {
    LoopbackServer server(answer({.body = std::string(100'000, 'd'), .dripBytes = 1, .dripInterval = 5ms}));
    RestCaller caller;
    caller.settings.requestTimeout = 150ms;
    expectFailure(caller.get(server.obtainURL()), kRequestTimeout);
}

TEST(RestFailure, NamesAConnectionThatDoesNotComeInTime) {
    const DeafPort port;
    const std::string address = port.obtainURL().substr(std::string_view("http").size());
    for (const char* scheme : {"http", "https"}) {
        RestCaller caller;
        caller.settings.connectTimeout = 150ms;
        RestResult result;
        const auto took = measure([&] { result = caller.get(scheme + address); });
        expectFailure(result, kConnectTimeout);
        EXPECT_GE(took, 140ms);
        EXPECT_LT(took, 10s);
    }
}

TEST(RestFailure, NamesATLSHandshakeThatDoesNotComeInTime) {
    LoopbackServer server(answer({}), {.tls = LoopbackTLS::Valid, .isSilent = true});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    caller.settings.connectTimeout = 150ms;
    expectFailure(caller.get(server.obtainURL()),
                  "Time-out: the server accepted the connection but did not finish the TLS handshake within the time "
                  "limit");
}

TEST(RestFailure, LimitsConnectingByTheTimeOfTheWholeExchangeToo) {
    const DeafPort port;
    RestCaller caller;
    caller.settings.connectTimeout = 0ms;
    caller.settings.requestTimeout = 150ms;
    expectFailure(caller.get(port.obtainURL()), kConnectTimeout);
}

TEST(RestFailure, TakesATimeLimitOfZeroOrLessForNone) {
    for (const auto limit : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        LoopbackServer server(answer({.body = "late", .fault = LoopbackFault::StallBeforeReply, .stallLimit = 300ms}));
        RestCaller caller;
        caller.settings.connectTimeout = limit;
        caller.settings.requestTimeout = limit;
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "late");
    }
}

TEST(RestFailure, TakesTheLongestTimeLimits) {
    LoopbackServer server(answer({.body = "late", .fault = LoopbackFault::StallBeforeReply, .stallLimit = 50ms}));
    RestCaller caller;
    caller.settings.connectTimeout = std::chrono::milliseconds::max();
    caller.settings.requestTimeout = std::chrono::milliseconds::max();
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "late");
}

TEST(RestFailure, NamesABodyOverTheLimit) {
    for (const LoopbackFraming framing :
         {LoopbackFraming::ContentLength, LoopbackFraming::Chunked, LoopbackFraming::UntilClose}) {
        LoopbackServer server(answer({.body = std::string(100'001, 'b'), .framing = framing}));
        RestCaller caller;
        caller.settings.maxResponseBytes = 100'000;
        expectFailure(caller.get(server.obtainURL()), kOversized);
        caller.settings.maxResponseBytes = 100'001;
        EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    }
}

TEST(RestFailure, LimitsTheBodyOfAnErrorTooAndAnyBodyAtAll) {
    LoopbackServer server(answer({.status = 500, .body = "b"}));
    RestCaller caller;
    caller.settings.maxResponseBytes = 0;
    expectFailure(caller.get(server.obtainURL()), kOversized);
    LoopbackServer empty(answer({}));
    EXPECT_EQ(caller.get(empty.obtainURL()).code, 0);
}

TEST(RestFailure, LimitsABodyAfterItsDecompression) {
    LoopbackServer server(answer({.body = std::string(20'000'000, '\0'), .isCompressed = true}));
    RestCaller caller;
    caller.recordTrace();
    caller.settings.maxResponseBytes = 1'000'000;
    expectFailure(caller.get(server.obtainURL()), kOversized);
    EXPECT_LE(caller.records.at(0).responseBytes, 1'000'000U);
}

TEST(RestFailure, EndsABodyThatNeverEnds) {
    LoopbackServer server(answer({.raw = "HTTP/1.1 200 OK\r\n\r\n", .endless = std::string(1000, 'e')}));
    RestCaller caller;
    caller.settings.maxResponseBytes = 1'000'000;
    expectFailure(caller.get(server.obtainURL()), kOversized);
}

TEST(RestFailure, EndsHeadersThatNeverEnd) {
    for (const char* const filler : {"X-Filler: filler\r\n", "filler"}) {
        LoopbackServer server(answer({.raw = "HTTP/1.1 200 OK\r\nX-Filler: ", .endless = filler}));
        RestCaller caller;
        expectFailure(caller.get(server.obtainURL()), kOversized);
    }
}

TEST(RestFailure, EndsInterimResponsesThatNeverEnd) {
    LoopbackServer server(answer({.raw = "", .endless = "HTTP/1.1 103 Early Hints\r\n\r\n"}));
    RestCaller caller;
    caller.recordTrace();
    expectFailure(caller.get(server.obtainURL()), kOversized);
    EXPECT_EQ(caller.records.at(0).status, 0);
}

TEST(RestFailure, EndsTrailersThatNeverEnd) {
    LoopbackServer server(answer(
        {.raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n", .endless = "X-Filler: filler\r\n"}));
    RestCaller caller;
    expectFailure(caller.get(server.obtainURL()), kOversized);
}

TEST(RestFailure, NamesAnAnswerThatIsNotHTTP) {
    for (const char* const raw : {"garbage\r\n\r\n", "SSH-2.0-OpenSSH_9.2\r\n", "\0\1\2\3", "HTTP/9.9 200 OK\r\n\r\n",
                                  "HTTP/1.1 OK\r\n\r\n", "HTTP/1.1 099 Low\r\n\r\n"}) {
        LoopbackServer server(answer({.raw = raw, .isClosedAfter = true}));
        RestCaller caller;
        caller.recordTrace();
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.response, nullptr) << raw;
        EXPECT_LT(result.code, 100) << raw;
        EXPECT_TRUE(result.text == kMalformed || result.text == kBroken) << raw << ": " << result.text;
        EXPECT_EQ(caller.records.at(0).status, 0);
    }
}

TEST(RestFailure, NamesABodyThatIsNotTheGzipItClaimsToBe) {
    LoopbackServer server(answer({.headers = {{"Content-Encoding", "gzip"}}, .body = "this is not gzip"}));
    RestCaller caller;
    expectFailure(caller.get(server.obtainURL()), kMalformed);
}

TEST(RestFailure, NamesAPlainServerAskedForTLS) {
    // One that answers at once, whatever it is asked.
    const LoopbackListener listener(0);
    std::thread server([&] {
        const LoopbackBlockedSignals signals;
        const int client = listener.accept();
        constexpr std::string_view kAnswer = "HTTP/1.1 400 Bad Request\r\n\r\n";
        EXPECT_EQ(send(client, kAnswer.data(), kAnswer.size(), 0), static_cast<ssize_t>(kAnswer.size()));
        std::array<char, 4096> ignored{};
        while (recv(client, ignored.data(), ignored.size(), 0) > 0) {
        }
        close(client);
    });
    RestCaller caller;
    caller.settings.verifyPeer = false;
    expectFailure(caller.get("https://127.0.0.1:" + std::to_string(listener.obtainPort()) + "/"),
                  "No secure connection to the server: it speaks plain HTTP, not TLS");
    server.join();
}

TEST(RestFailure, LeavesNothingBehindOfSettingsThatLibcurlRefuses) {
    LoopbackServer server(answer({.body = "ok"}));
    RestCaller caller;
    caller.settings.proxyURL = "http://" + std::string(8'000'001, 'p');
    expectFailure(caller.get(server.obtainURL()), "The request failed inside the HTTP transport");
    caller.settings.proxyURL = "";
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
}

TEST(RestFailure, LeavesThePoolUsable) {
    std::size_t served = 0;
    LoopbackServer server([&](const LoopbackRequest&) {
        return ++served % 2 == 1 ? LoopbackReply{.body = "0123456789", .fault = LoopbackFault::CutInBody}
                                 : LoopbackReply{.body = "whole"};
    });
    RestCaller caller;
    for (int round = 0; round < 3; ++round) {
        expectFailure(caller.get(server.obtainURL()), kBroken);
        EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "whole");
        // The next round's fault must not meet a connection that is used again, or libcurl would try once more.
        server.closeConnections();
        EXPECT_TRUE(server.waitForOpenConnections(0));
    }
}
