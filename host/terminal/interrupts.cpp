#include "terminal/interrupts.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>

#include "host_error.h"

namespace host {
namespace {

std::atomic<int> s_requests{0};
std::atomic<bool> s_isEndRequested{false};
std::atomic<void (*)()> s_lastAction{nullptr};
std::array<int, 2> s_wakePipe{-1, -1};

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
                  std::atomic<void (*)()>::is_always_lock_free,
              "a signal handler may use these");

/// The time for the program to end by itself after the second request. Seconds.
constexpr unsigned kGrace = 2;

[[noreturn]] void endAtOnce(int /*signal*/) {
    if (void (*action)() = s_lastAction) {
        action();
    }
    _exit(static_cast<int>(ExitCode::Cancelled));
}

void noteSignal(int signal) {
    const int savedErrno = errno;
    const int requests = s_requests.fetch_add(1) + 1;
    if (requests > 2) {
        endAtOnce(signal);
    }
    if (signal != SIGINT || requests == 2) {
        s_isEndRequested = true;
    }
    if (requests == 2) {
        alarm(kGrace);
    }
    const char mark = 0;
    // A full pipe wakes the reader as well as one more byte.
    [[maybe_unused]] const ssize_t ignored = write(s_wakePipe[1], &mark, 1);
    errno = savedErrno;
}

void installHandler(int signal, void (*handler)(int)) {
    struct sigaction former {};
    sigaction(signal, nullptr, &former);
    if (former.sa_handler == SIG_IGN) {
        return;
    }
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // Without SA_RESTART the signal interrupts a read of the terminal, so that the prompt can come back.
    action.sa_flags = 0;
    sigaction(signal, &action, nullptr);
}

}  // namespace

void Interrupts::install() {
    if (s_wakePipe[0] < 0 && pipe2(s_wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        installHandler(signal, noteSignal);
    }
    installHandler(SIGALRM, endAtOnce);
    ::signal(SIGPIPE, SIG_IGN);
}

bool Interrupts::isRequested() noexcept {
    return s_requests > 0;
}

int Interrupts::countRequests() noexcept {
    return s_requests;
}

bool Interrupts::isEndRequested() noexcept {
    return s_isEndRequested;
}

void Interrupts::clear() noexcept {
    alarm(0);
    s_requests = 0;
    std::array<char, 64> marks{};
    while (read(s_wakePipe[0], marks.data(), marks.size()) > 0) {
    }
}

int Interrupts::obtainWakeDescriptor() noexcept {
    return s_wakePipe[0];
}

void Interrupts::setLastAction(void (*action)()) noexcept {
    s_lastAction = action;
}

}  // namespace host
