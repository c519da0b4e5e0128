#ifndef CF_SRC_REST_SIGNALS_H
#define CF_SRC_REST_SIGNALS_H

#include <csignal>
#include <ctime>

namespace cf {

/// Blocks SIGPIPE on this thread while it lives, so that writing to a closed connection neither stops the host nor
/// calls its signal handler. A SIGPIPE that was pending before stays pending.
class SigpipeGuard {
public:
    SigpipeGuard() noexcept {
        sigemptyset(&m_pipeSignal);
        sigaddset(&m_pipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipeSignal, &m_formerMask);
        // A signal that is not blocked is never pending.
        if (sigismember(&m_formerMask, SIGPIPE) == 1) {
            sigset_t pending;
            sigemptyset(&pending);
            sigpending(&pending);
            m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        }
    }

    ~SigpipeGuard() {
        if (!m_wasPending) {
            constexpr timespec kNoWait{};
            sigtimedwait(&m_pipeSignal, nullptr, &kNoWait);
        }
        pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
    }

    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    sigset_t m_pipeSignal{};
    sigset_t m_formerMask{};
    bool m_wasPending = false;
};

}  // namespace cf

#endif
