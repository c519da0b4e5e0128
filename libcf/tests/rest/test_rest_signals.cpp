#include "rest/rest_signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "loopback_server.h"
#include "rest/rest_caller.h"

namespace {

bool isPipeSignalPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

bool isPipeSignalBlocked() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
}

void setPipeSignalBlocked(bool isBlocked) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(isBlocked ? SIG_BLOCK : SIG_UNBLOCK, &signals, nullptr);
}

/// A pipe that nobody reads: writing to it raises SIGPIPE.
void writeToBrokenPipe() {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

class SigpipeGuardTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_former = signal(SIGPIPE, [](int) { s_received = s_received + 1; });
        s_received = 0;
    }
    void TearDown() override {
        setPipeSignalBlocked(false);
        signal(SIGPIPE, m_former);
    }

    static inline volatile std::sig_atomic_t s_received = 0;

private:
    void (*m_former)(int) = SIG_DFL;
};

/// Exchanges with servers that vanish, in a process that SIGPIPE would stop.
void requestFromVanishingServers(LoopbackTLS tls) {
    signal(SIGPIPE, SIG_DFL);
    {
        LoopbackServer server(
            [](const LoopbackRequest& request) {
                return LoopbackReply{
                    .body = "ok",
                    .fault = request.path == "/reset" ? LoopbackFault::ResetBeforeReply : LoopbackFault::None,
                    .isClosedAfter = true};
            },
            {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        for (int round = 0; round < 20; ++round) {
            caller.post(server.obtainURL("/"), std::string(100'000, 'b'));
            caller.post(server.obtainURL("/reset"), std::string(100'000, 'b'));
        }
        caller.post(server.obtainURL("/"), "b");
        server.stop();
        caller.pool.reset();
    }
    std::exit(isPipeSignalPending() || isPipeSignalBlocked() ? 1 : 0);
}

}  // namespace

TEST_F(SigpipeGuardTest, KeepsTheSignalAway) {
    {
        const cf::SigpipeGuard guard;
        writeToBrokenPipe();
        EXPECT_TRUE(isPipeSignalPending());
    }
    EXPECT_EQ(s_received, 0);
    EXPECT_FALSE(isPipeSignalPending());
    EXPECT_FALSE(isPipeSignalBlocked());
}

TEST_F(SigpipeGuardTest, LeavesTheMaskOfAHostThatBlocksTheSignal) {
    setPipeSignalBlocked(true);
    {
        const cf::SigpipeGuard guard;
        writeToBrokenPipe();
    }
    EXPECT_TRUE(isPipeSignalBlocked());
    EXPECT_FALSE(isPipeSignalPending());
}

TEST_F(SigpipeGuardTest, LeavesASignalThatWasPendingBefore) {
    setPipeSignalBlocked(true);
    raise(SIGPIPE);
    {
        const cf::SigpipeGuard guard;
        writeToBrokenPipe();
    }
    EXPECT_TRUE(isPipeSignalPending());
    setPipeSignalBlocked(false);
    EXPECT_EQ(s_received, 1);
}

TEST_F(SigpipeGuardTest, MayBeNested) {
    {
        const cf::SigpipeGuard outer;
        {
            const cf::SigpipeGuard inner;
            writeToBrokenPipe();
        }
        EXPECT_TRUE(isPipeSignalBlocked());
        EXPECT_FALSE(isPipeSignalPending());
        writeToBrokenPipe();
    }
    EXPECT_FALSE(isPipeSignalBlocked());
    EXPECT_EQ(s_received, 0);
}

TEST(RestSignals, DoesNotStopAHostWhoseServersVanish) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(requestFromVanishingServers(LoopbackTLS::Off), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(requestFromVanishingServers(LoopbackTLS::Valid), testing::ExitedWithCode(0), "");
}

TEST(RestSignals, LeavesTheSignalToTheHostsFunctions) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{.body = "firstsecond", .fault = LoopbackFault::StallInBody, .faultAt = 5};
    });
    RestCaller caller;
    int asked = 0;
    int told = 0;
    caller.settings.cancelled = [&] {
        EXPECT_FALSE(isPipeSignalBlocked());
        if (++asked == 3) {
            server.releaseStalls();
        }
        return false;
    };
    CMRestPostRequest request;
    request.setURL(server.obtainURL());
    request.setBodyReceiver([&](std::string_view) {
        EXPECT_FALSE(isPipeSignalBlocked());
        ++told;
    });
    EXPECT_EQ(caller.post(request).code, 0);
    EXPECT_GE(asked, 3);
    EXPECT_GE(told, 2);
}
