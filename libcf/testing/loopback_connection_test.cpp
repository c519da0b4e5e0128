#include "loopback_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <future>

namespace {

// Two connected sockets. The first one is given away.
struct SocketPair {
    SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0); }
    ~SocketPair() { ::close(ends[1]); }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    std::array<int, 2> ends{};
};

bool connectTLS(int socket) {
    const std::unique_ptr<SSL_CTX, LoopbackTLSDeleter> context(SSL_CTX_new(TLS_client_method()));
    const std::unique_ptr<SSL, LoopbackTLSDeleter> client(SSL_new(context.get()));
    SSL_set_fd(client.get(), socket);
    return SSL_connect(client.get()) == 1;
}

}  // namespace

TEST(LoopbackConnection, WritesNothingToASocketThatTookOverItsNumber) {
    const auto credentials = makeLoopbackCredentials(LoopbackTLS::Valid);
    const SocketPair own;
    LoopbackConnection connection(own.ends[0], credentials.context.get());
    auto client = std::async(std::launch::async, connectTLS, own.ends[1]);
    ASSERT_TRUE(connection.shakeHands());
    ASSERT_TRUE(client.get());
    connection.abandon();

    const SocketPair other;
    ASSERT_EQ(dup2(other.ends[0], own.ends[0]), own.ends[0]);
    connection.close();
    char byte = 0;
    EXPECT_LT(recv(other.ends[1], &byte, 1, MSG_DONTWAIT), 0);
    ::close(own.ends[0]);
    if (other.ends[0] != own.ends[0]) {
        ::close(other.ends[0]);
    }
}

TEST(LoopbackConnection, FailsAfterAnInterruption) {
    const SocketPair own;
    LoopbackConnection connection(own.ends[0], nullptr);
    connection.interrupt();
    char byte = 0;
    EXPECT_EQ(connection.read(&byte, 1), 0U);
    EXPECT_FALSE(connection.write("x"));
    EXPECT_FALSE(connection.pause(std::nullopt, [] { return false; }));
}

TEST(LoopbackConnection, GoesOnWhenItIsWokenWithAReason) {
    const SocketPair own;
    LoopbackConnection connection(own.ends[0], nullptr);
    int asked = 0;
    connection.wake();
    EXPECT_TRUE(connection.pause(std::nullopt, [&] { return ++asked == 2; }));
}
