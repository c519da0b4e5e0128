#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "loopback_server.h"
#include "loopback_socket.h"
#include "rest/rest_caller.h"

namespace {

LoopbackReply answerOK(const LoopbackRequest& /*request*/) {
    return {.body = "ok"};
}

constexpr const char* kProxy = "The proxy cannot be used: check its address and credentials, and that it is running";

/// A proxy that opens tunnels (CONNECT) to ports of 127.0.0.1, one at a time.
class TunnelProxy {
public:
    /// @param answer  what CONNECT is answered
    explicit TunnelProxy(std::string answer = "HTTP/1.1 200 Connected\r\n\r\n")
        : m_listener(0), m_answer(std::move(answer)), m_thread([this] { serve(); }) {}
    ~TunnelProxy() {
        m_listener.stop();
        m_thread.join();
    }
    TunnelProxy(const TunnelProxy&) = delete;
    TunnelProxy& operator=(const TunnelProxy&) = delete;

    [[nodiscard]] std::string obtainURL() const {
        return "http://127.0.0.1:" + std::to_string(m_listener.obtainPort());
    }
    [[nodiscard]] int countTunnels() const { return m_tunnels; }

private:
    void serve() {
        const LoopbackBlockedSignals signals;
        for (int client = m_listener.accept(); client >= 0; client = m_listener.accept()) {
            const int server = connectAsAsked(readHead(client));
            ++m_tunnels;
            static_cast<void>(send(client, m_answer.data(), m_answer.size(), 0));
            while (waitForBytes(client, server)) {
                if (!passOn(client, server) || !passOn(server, client)) {
                    break;
                }
            }
            close(server);
            close(client);
        }
    }

    static std::string readHead(int client) {
        std::string head;
        char byte = 0;
        while (head.find("\r\n\r\n") == std::string::npos && recv(client, &byte, 1, 0) == 1) {
            head += byte;
        }
        return head;
    }

    static int connectAsAsked(const std::string& head) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(head.substr(head.find(':') + 1))));
        const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        return server;
    }

    static bool waitForBytes(int one, int other) {
        std::array<pollfd, 2> ends{{{one, POLLIN, 0}, {other, POLLIN, 0}}};
        return poll(ends.data(), ends.size(), -1) > 0;
    }

    static bool passOn(int from, int to) {
        std::array<char, 16384> buffer{};
        const ssize_t size = recv(from, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size < 0) {
            return errno == EAGAIN;
        }
        return size > 0 && send(to, buffer.data(), static_cast<std::size_t>(size), 0) == size;
    }

    LoopbackListener m_listener;
    std::string m_answer;
    std::atomic<int> m_tunnels{0};
    std::thread m_thread;
};

}  // namespace

TEST(RestProxy, CarriesPlainRequests) {
    LoopbackServer proxy(answerOK);
    RestCaller caller;
    caller.settings.proxyURL = proxy.obtainURL();
    EXPECT_EQ(caller.get("http://server.invalid:8080/p?q").obtainBody(), "ok");
    EXPECT_EQ(proxy.requests().at(0).target, "http://server.invalid:8080/p?q");
}

TEST(RestProxy, IsGivenItsOwnCredentialOnly) {
    LoopbackServer proxy(answerOK);
    RestCaller caller;
    caller.settings.proxyURL = "http://user:pass@" + proxy.obtainAuthority();
    EXPECT_EQ(caller.get("http://server.invalid/").code, 0);
    ASSERT_NE(proxy.requests().at(0).findHeader("Proxy-Authorization"), nullptr);
    EXPECT_EQ(*proxy.requests().at(0).findHeader("Proxy-Authorization"), "Basic dXNlcjpwYXNz");
}

TEST(RestProxy, CarriesTLSThroughATunnelWithoutSeeingTheCredential) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    const TunnelProxy proxy;
    caller.settings.caBundleFile = server.obtainCAFile();
    caller.settings.proxyURL = proxy.obtainURL();
    caller.session.setAuthorizationHeaderValue("Bearer key");
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(caller.get(server.obtainURL()).obtainBody(), "ok");
    EXPECT_EQ(proxy.countTunnels(), 1);
    EXPECT_EQ(server.countConnections(), 1U);
    EXPECT_EQ(*server.requests().at(0).findHeader("Authorization"), "Bearer key");
    caller.pool.reset();
}

TEST(RestProxy, SaysNothingOfTheServersResponseWhenItOpensATunnel) {
    const std::string raw = "HTTP/1.1 200 OK\r\n\r\ncut";
    for (const std::string& cut : {raw, std::string()}) {
        LoopbackServer server(
            [&](const LoopbackRequest&) {
                return LoopbackReply{.raw = cut, .fault = LoopbackFault::CutInBody, .faultAt = cut.size()};
            },
            {.tls = LoopbackTLS::Valid});
        RestCaller caller;
        const TunnelProxy proxy("HTTP/1.1 200 Connected\r\nTransfer-Encoding: chunked\r\n\r\n");
        caller.settings.caBundleFile = server.obtainCAFile();
        caller.settings.proxyURL = proxy.obtainURL();
        const RestResult result = caller.get(server.obtainURL());
        EXPECT_EQ(result.text, "The connection broke before the whole answer had arrived") << cut;
        EXPECT_EQ(result.response, nullptr) << cut;
        caller.pool.reset();
    }
}

TEST(RestProxy, SharesNoConnectionWithExchangesWithoutIt) {
    LoopbackServer server(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    const TunnelProxy proxy;
    caller.settings.caBundleFile = server.obtainCAFile();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    caller.settings.proxyURL = proxy.obtainURL();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(proxy.countTunnels(), 1);
    EXPECT_EQ(server.countConnections(), 2U);
    caller.settings.proxyURL = "";
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.requests().at(2).connection, 1U);
    caller.pool.reset();
}

TEST(RestProxy, IsNoLongerUsedWhenItIsTakenAway) {
    LoopbackServer proxy(answerOK);
    LoopbackServer server(answerOK);
    RestCaller caller;
    caller.settings.proxyURL = proxy.obtainURL();
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countRequests(), 0U);
    caller.settings.proxyURL = "";
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    EXPECT_EQ(server.countRequests(), 1U);
    EXPECT_EQ(proxy.countRequests(), 1U);
}

TEST(RestProxy, MaySpeakTLSItself) {
    LoopbackServer proxy(answerOK, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = proxy.obtainCAFile();
    caller.settings.proxyURL = proxy.obtainURL();
    EXPECT_EQ(caller.get("http://server.invalid/").obtainBody(), "ok");
    EXPECT_EQ(proxy.requests().at(0).target, "http://server.invalid/");
}

TEST(RestProxy, IsCheckedAsAServerIs) {
    for (const LoopbackTLS tls : {LoopbackTLS::SelfSigned, LoopbackTLS::WrongHostName}) {
        LoopbackServer proxy(answerOK, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = proxy.obtainCAFile();
        caller.settings.proxyURL = proxy.obtainURL();
        EXPECT_EQ(caller.get("http://server.invalid/").text, kProxy);
        EXPECT_EQ(proxy.countRequests(), 0U);
        caller.settings.verifyPeer = false;
        EXPECT_EQ(caller.get("http://server.invalid/").text, "");
    }
}

TEST(RestProxy, HandsBackItsOwnAnswerToAPlainRequest) {
    LoopbackServer proxy([](const LoopbackRequest&) { return LoopbackReply{.status = 407, .body = "who?"}; });
    RestCaller caller;
    caller.settings.proxyURL = proxy.obtainURL();
    const RestResult result = caller.get("http://server.invalid/");
    EXPECT_EQ(result.text, "HTTP 407 Proxy Authentication Required");
    EXPECT_EQ(result.obtainBody(), "who?");
}

TEST(RestProxy, IsNamedWhenItRefusesATunnel) {
    for (const int status : {403, 407, 502}) {
        LoopbackServer proxy([&](const LoopbackRequest&) { return LoopbackReply{.status = status, .body = "no"}; });
        RestCaller caller;
        caller.recordTrace();
        caller.settings.proxyURL = proxy.obtainURL();
        const RestResult result = caller.get("https://server.invalid/");
        EXPECT_EQ(result.text, kProxy);
        EXPECT_EQ(result.response, nullptr);
        EXPECT_EQ(caller.records.at(0).status, 0);
    }
}

TEST(RestProxy, CannotContinueAHeaderOfAnEarlierResponse) {
    // libcurl 7.88 would use memory that it has freed. In the second case the tunnel's first header line is at fault.
    const std::string folded = " Folded: " + std::string(200, 'f') + "\r\n\r\n";
    for (const bool isProxyAtFault : {true, false}) {
        bool isFolded = false;
        LoopbackServer server(
            [&](const LoopbackRequest&) {
                return isFolded ? LoopbackReply{.raw = "HTTP/1.1 200 OK\r\n" + folded}
                                : LoopbackReply{.headers = {{"X-Long", std::string(100, 'x')}}};
            },
            {.tls = LoopbackTLS::Valid});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        for (int round = 0; round < 5; ++round) {
            const TunnelProxy proxy("HTTP/1.1 200 Connected\r\n" + (isProxyAtFault ? folded : "\r\n"));
            caller.settings.proxyURL = "";
            isFolded = false;
            EXPECT_EQ(caller.get(server.obtainURL()).text, "");
            caller.settings.proxyURL = proxy.obtainURL();
            isFolded = !isProxyAtFault;
            EXPECT_EQ(caller.get(server.obtainURL()).text, "The server's answer is not valid HTTP");
        }
    }
}

TEST(RestProxy, IsNamedWhenItIsNotThere) {
    LoopbackListener listener(0);
    const std::string authority = "127.0.0.1:" + std::to_string(listener.obtainPort());
    listener.close();
    RestCaller caller;
    for (const char* const scheme : {"http://", "socks5://", "https://", "unknown://"}) {
        caller.settings.proxyURL = scheme + authority;
        EXPECT_EQ(caller.get("http://127.0.0.1:1/").text, kProxy) << scheme;
    }
    caller.settings.proxyURL = "http://" + std::string(70, 'a') + ".invalid:8080";
    EXPECT_EQ(caller.get("http://127.0.0.1:1/").text, kProxy);
}
