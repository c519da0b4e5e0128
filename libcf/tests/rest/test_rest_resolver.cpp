#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// Exchanges whose host name takes long to resolve. The resolver's function is replaced by one that waits, for one name,
// until it is let go.

namespace {

using namespace std::chrono_literals;

constexpr const char* kSlowName = "slow.invalid";

class SlowResolver {
public:
    void enter() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_waiting;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_isReleased; });
        --m_waiting;
        m_changed.notify_all();
    }

    [[nodiscard]] bool isWaiting() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_waiting > 0;
    }

    /// Lets the waiting go on and waits until it has.
    void release() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isReleased = true;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_waiting == 0; });
        m_isReleased = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_waiting = 0;
    bool m_isReleased = false;
};

SlowResolver& obtainSlowResolver() {
    static SlowResolver resolver;
    return resolver;
}

/// What a program that is started now finds open, without the descriptors that are its own.
std::vector<std::string> listInheritedDescriptors() {
    const std::unique_ptr<FILE, int (*)(FILE*)> output(popen("readlink /proc/self/fd/* 2>/dev/null", "r"), pclose);
    std::vector<std::string> descriptors;
    std::array<char, 512> line{};
    while (output && std::fgets(line.data(), line.size(), output.get()) != nullptr) {
        const std::string text(line.data());
        // The standard streams, the pipe to this process and the folder that is listed.
        if (text.find("socket:") == 0 || text.find("anon_inode:") == 0) {
            descriptors.push_back(text);
        }
    }
    return descriptors;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** result) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto system = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name != nullptr && std::strcmp(name, kSlowName) == 0) {
        obtainSlowResolver().enter();
        return EAI_NONAME;
    }
    return system(name, service, hints, result);
}

TEST(RestResolver, DoesNotHoldUpACancelledExchange) {
    RestCaller caller;
    caller.settings.cancelled = [] { return obtainSlowResolver().isWaiting(); };
    EXPECT_EQ(caller.get(std::string("http://") + kSlowName + "/").text, "The request was cancelled");
    EXPECT_TRUE(obtainSlowResolver().isWaiting());
    caller.pool.reset();
    EXPECT_TRUE(obtainSlowResolver().isWaiting());
    obtainSlowResolver().release();
}

TEST(RestResolver, DoesNotHoldUpAnExchangePastItsTimeLimit) {
    RestCaller caller;
    caller.settings.connectTimeout = 100ms;
    EXPECT_EQ(caller.get(std::string("http://") + kSlowName + "/").text,
              "Time-out: no connection to the server within the time limit");
    EXPECT_TRUE(obtainSlowResolver().isWaiting());
    obtainSlowResolver().release();
}

TEST(RestResolver, LeavesNoDescriptorToProgramsThatTheHostStarts) {
    const std::vector<std::string> former = listInheritedDescriptors();
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; });
    RestCaller caller;
    EXPECT_EQ(caller.get(server.obtainURL()).code, 0);
    std::vector<std::string> inherited;
    caller.settings.cancelled = [&] {
        if (obtainSlowResolver().isWaiting()) {
            inherited = listInheritedDescriptors();
            obtainSlowResolver().release();
        }
        return false;
    };
    caller.get(std::string("http://") + kSlowName + "/");
    EXPECT_EQ(inherited, former);
}

TEST(RestResolver, IsWaitedForOtherwise) {
    RestCaller caller;
    caller.settings.cancelled = [] {
        if (obtainSlowResolver().isWaiting()) {
            obtainSlowResolver().release();
        }
        return false;
    };
    EXPECT_EQ(caller.get(std::string("http://") + kSlowName + "/").text,
              "The server's name cannot be resolved: check the host name and the network");
}
