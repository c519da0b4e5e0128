#ifndef HOST_INTERRUPTS_H
#define HOST_INTERRUPTS_H

namespace host {

/// Ctrl-C and requests to end, recorded by process-wide signal handlers. The handlers do little more than record, so
/// that a turn can be cancelled and cleaned up.
///
/// The second Ctrl-C since the last clear() requests the program to end. If nothing calls clear() within two seconds,
/// or at a third Ctrl-C, the process ends at once, whatever it is doing.
class Interrupts {
public:
    /// Installs the handlers of SIGINT, SIGTERM, SIGHUP and SIGALRM, and ignores SIGPIPE: output that nobody reads is
    /// then an error of the stream. A signal that the parent ignored stays ignored.
    static void install();

    /// Whether Ctrl-C was pressed, or an end requested, since the last clear().
    [[nodiscard]] static bool isRequested() noexcept;
    /// The number of requests since the last clear().
    [[nodiscard]] static int countRequests() noexcept;
    /// Whether the process must end (SIGTERM, SIGHUP, a second Ctrl-C). Stays true.
    [[nodiscard]] static bool isEndRequested() noexcept;

    /// Forgets the requests so far, except a request to end.
    static void clear() noexcept;

    /// A descriptor that becomes readable after a signal, to wait for together with others.
    [[nodiscard]] static int obtainWakeDescriptor() noexcept;

    /// Sets an action for the handler before the process ends at once; it must make only async-signal-safe calls.
    static void setLastAction(void (*action)()) noexcept;
};

}  // namespace host

#endif
