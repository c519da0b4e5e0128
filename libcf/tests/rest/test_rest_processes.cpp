#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Pools in a process and in the one that it forks.

namespace {

/// Runs `action` in a new process; wait() tells whether it gave true there.
template <typename Action>
class NewProcess {
public:
    explicit NewProcess(Action action) : m_process(fork()) {
        if (m_process == 0) {
            _exit(action() ? 0 : 1);
        }
    }
    bool wait() const {
        int status = 0;
        EXPECT_EQ(waitpid(m_process, &status, 0), m_process);
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t m_process;
};

LoopbackReply repeatBody(const LoopbackRequest& request) {
    return {.body = request.body};
}

}  // namespace

TEST(RestProcesses, ShareNoConnection) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(repeatBody, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        caller.recordTrace();
        EXPECT_EQ(caller.post(server.obtainURL(), "before").obtainBody(), "\"before\"");
        const NewProcess child([&] {
            bool isRight = true;
            for (int round = 0; round < 50; ++round) {
                isRight = isRight && caller.post(server.obtainURL(), "child").obtainBody() == "\"child\"";
            }
            isRight = isRight && !caller.records.at(1).connectionReused && caller.records.at(2).connectionReused;
            caller.pool.reset();
            return isRight;
        });
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(caller.post(server.obtainURL(), "parent").obtainBody(), "\"parent\"");
        }
        EXPECT_TRUE(child.wait());
        EXPECT_EQ(caller.post(server.obtainURL(), "after").obtainBody(), "\"after\"");
        EXPECT_TRUE(caller.records.back().connectionReused);
        EXPECT_EQ(server.countConnections(), 2U);
    }
}

TEST(RestProcesses, LeaveTheOthersConnectionsOpenWhenTheyDestroyAPool) {
    for (const LoopbackTLS tls : {LoopbackTLS::Off, LoopbackTLS::Valid}) {
        LoopbackServer server(repeatBody, {.tls = tls});
        RestCaller caller;
        caller.settings.caBundleFile = server.obtainCAFile();
        EXPECT_EQ(caller.post(server.obtainURL(), "before").code, 0);
        const NewProcess child([&] {
            caller.pool.reset();
            return true;
        });
        EXPECT_TRUE(child.wait());
        EXPECT_EQ(caller.post(server.obtainURL(), "after").code, 0);
        EXPECT_EQ(server.countConnections(), 1U);
    }
}

TEST(RestProcesses, LeaveNoDescriptorBehindAlsoWithoutStandardInput) {
    LoopbackServer server(repeatBody);
    RestCaller caller;
    EXPECT_EQ(caller.post(server.obtainURL(), "before").code, 0);
    const NewProcess child([&] {
        close(STDIN_FILENO);  // its number is the next that the system gives
        caller.pool.reset();
        return fcntl(STDIN_FILENO, F_GETFD) == -1;
    });
    EXPECT_TRUE(child.wait());
    EXPECT_EQ(caller.post(server.obtainURL(), "after").code, 0);
    EXPECT_EQ(server.countConnections(), 1U);
}

TEST(RestProcesses, LeaveTheOthersConnectionsOpenWhenTheyChangeTLSSettings) {
    LoopbackServer server(repeatBody, {.tls = LoopbackTLS::Valid});
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    EXPECT_EQ(caller.post(server.obtainURL(), "before").code, 0);
    const NewProcess child([&] {
        caller.settings.verifyPeer = false;
        return caller.post(server.obtainURL(), "child").code == 0;
    });
    EXPECT_TRUE(child.wait());
    EXPECT_EQ(caller.post(server.obtainURL(), "after").code, 0);
    EXPECT_EQ(server.countConnections(), 2U);
}

TEST(RestProcesses, EndAnExchangeThatIsTheOthers) {
    LoopbackServer server([](const LoopbackRequest& request) {
        return LoopbackReply{.body = "ok",
                             .fault = request.ordinal == 1 ? LoopbackFault::StallBeforeReply : LoopbackFault::None};
    });
    RestCaller caller;
    std::int32_t childResult = -1;
    pid_t child = -1;
    caller.settings.cancelled = [&] {
        if (child == -1 && server.countRequests() == 1) {
            child = fork();
            if (child != 0) {
                int status = 0;
                waitpid(child, &status, 0);
                childResult = WEXITSTATUS(status);
                server.releaseStalls();
            }
        }
        return false;
    };
    const RestResult result = caller.get(server.obtainURL());
    if (child == 0) {
        caller.pool.reset();
        _exit(result.code);
    }
    EXPECT_EQ(result.obtainBody(), "ok");
    EXPECT_EQ(childResult, static_cast<std::int32_t>(CMRestResult::BrokenConnection));
}
