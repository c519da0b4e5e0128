#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "loopback_server.h"
#include "rest/rest_caller.h"

// An exchange in which one allocation fails, whoever asks for it: libcf, libcurl or OpenSSL. Whatever becomes of it,
// the next exchange works. Replaces the C library's allocation for the whole process, and so stands alone.

namespace {

/// How many allocations of the thread succeed from now on before one fails; negative: all succeed.
thread_local long t_allocationsLeft = -1;
thread_local long t_allocationCount = 0;

bool isNextToFail() noexcept {
    ++t_allocationCount;
    if (t_allocationsLeft < 0) {
        return false;
    }
    if (t_allocationsLeft-- > 0) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* memory, std::size_t size) noexcept;

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
    return isNextToFail() ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
    return isNextToFail() ? nullptr : __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) noexcept {
    return isNextToFail() ? nullptr : __libc_realloc(memory, size);
}
}

namespace {

/// A server in a process of its own, so that this one has not used OpenSSL or libcurl yet.
class ServerProcess {
public:
    explicit ServerProcess(LoopbackTLS tls) {
        std::array<int, 2> toParent{};
        EXPECT_EQ(pipe(toParent.data()), 0);
        EXPECT_EQ(pipe(m_toServer.data()), 0);
        m_process = fork();
        if (m_process == 0) {
            close(m_toServer[1]);
            serve(tls, toParent[1]);
        }
        close(toParent[1]);
        close(m_toServer[0]);
        const std::string words = readAll(toParent[0]);
        close(toParent[0]);
        m_url = words.substr(0, words.find(' '));
        m_caFile = words.substr(words.find(' ') + 1);
    }
    ~ServerProcess() {
        close(m_toServer[1]);
        waitpid(m_process, nullptr, 0);
    }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    [[nodiscard]] const std::string& obtainURL() const { return m_url; }
    [[nodiscard]] const std::string& obtainCAFile() const { return m_caFile; }

private:
    static std::string readAll(int descriptor) {
        std::string text;
        std::array<char, 256> buffer{};
        for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }
    [[noreturn]] void serve(LoopbackTLS tls, int toParent) const {
        {
            LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{.body = "ok"}; }, {.tls = tls});
            const std::string words = server.obtainURL() + " " + server.obtainCAFile();
            static_cast<void>(!write(toParent, words.data(), words.size()));
            close(toParent);
            readAll(m_toServer[0]);  // until the other process closes it
        }
        _exit(0);
    }

    std::array<int, 2> m_toServer{};
    pid_t m_process = -1;
    std::string m_url;
    std::string m_caFile;
};

enum class Ending : int { Right = 0, FirstWrong = 1, SecondWrong = 2, OpenSSLBroken = 3 };

/// Whether OpenSSL, used by nobody but this function, still shakes hands with the server in this process.
bool canOpenSSLConnect(const ServerProcess& server) {
    const std::string& url = server.obtainURL();
    const std::size_t start = url.find("//") + 2;
    const std::string authority = url.substr(start, url.find('/', start) - start);
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!context) {
        return false;
    }
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()), BIO_free_all);
    return connection && BIO_set_conn_hostname(connection.get(), authority.c_str()) == 1 &&
           BIO_do_handshake(connection.get()) == 1;
}

/// Runs exchanges in a process that has run none before (or one, when it is to be warm); in the first that counts one
/// allocation fails.
/// @param allowed  allocations that succeed before; negative: none fails
Ending runExchanges(const ServerProcess& server, bool isWarm, long allowed, long& needed) {
    RestCaller caller;
    caller.settings.caBundleFile = server.obtainCAFile();
    const RestTextBody body("b");
    CMRestPostRequest request;
    request.setURL(server.obtainURL());
    request.updateJson(&body);
    if (isWarm) {
        static_cast<void>(caller.post(request));
    }
    t_allocationCount = 0;
    t_allocationsLeft = allowed;
    bool isSound = true;
    try {
        const RestResult result = caller.post(request);
        isSound = result.code != static_cast<std::int32_t>(CMRestResult::OversizedResponse);
    } catch (const std::bad_alloc&) {
    }
    t_allocationsLeft = -1;
    needed = t_allocationCount;
    if (!isSound) {
        return Ending::FirstWrong;
    }
    RestResult second;
    try {
        second = caller.post(request);
        if (second.code == 0 && second.obtainBody() == "ok") {
            return Ending::Right;
        }
    } catch (const std::bad_alloc&) {
        second.text = "std::bad_alloc";
    }
    const bool isOpenSSLBroken = server.obtainURL().starts_with("https") && !canOpenSSLConnect(server);
    std::fprintf(stderr, "allocation %ld, the exchange after it: %s%s\n", allowed, second.text.c_str(),
                 isOpenSSLBroken ? "; so does OpenSSL alone" : "");
    return isOpenSSLBroken ? Ending::OpenSSLBroken : Ending::SecondWrong;
}

long countAllocations(const ServerProcess& server, bool isWarm) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        long needed = 0;
        runExchanges(server, isWarm, -1, needed);
        static_cast<void>(!write(ends[1], &needed, sizeof needed));
        _exit(0);
    }
    long needed = 0;
    EXPECT_EQ(read(ends[0], &needed, sizeof needed), static_cast<ssize_t>(sizeof needed));
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return needed;
}

/// Each how manyth allocation is made to fail. CF_ALLOCATION_STEP=1 tries all of them.
long obtainStep(long usual) {
    const char* const wanted = std::getenv("CF_ALLOCATION_STEP");
    return wanted == nullptr ? usual : std::max(1L, std::atol(wanted));
}

void failAllocations(LoopbackTLS tls, bool isWarm, long usualStep) {
    const ServerProcess server(tls);
    const long count = countAllocations(server, isWarm);
    EXPECT_GT(count, 10);
    long tried = 0;
    long broken = 0;
    for (long allowed = 0; allowed < count; allowed += obtainStep(usualStep)) {
        const pid_t child = fork();
        if (child == 0) {
            long needed = 0;
            _exit(static_cast<int>(runExchanges(server, isWarm, allowed, needed)));
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status) << " at allocation " << allowed;
        const auto ending = static_cast<Ending>(WEXITSTATUS(status));
        EXPECT_TRUE(ending == Ending::Right || ending == Ending::OpenSSLBroken) << "at allocation " << allowed;
        broken += ending == Ending::OpenSSLBroken ? 1 : 0;
        ++tried;
    }
    std::printf("%ld of %ld allocations failed once; OpenSSL broke for good at %ld\n", tried, count, broken);
    // OpenSSL 3.0 loads its algorithms once, and does without one whose loading failed for want of memory ever after.
    EXPECT_LE(broken, tried / 50);
}

}  // namespace

TEST(RestMemory, MayRunOutInTheFirstExchangeOfAProcess) {
    failAllocations(LoopbackTLS::Off, false, 7);
}

TEST(RestMemory, MayRunOutInALaterExchange) {
    failAllocations(LoopbackTLS::Off, true, 1);
    failAllocations(LoopbackTLS::Valid, true, 1);
}
