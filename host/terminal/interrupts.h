#ifndef HOST_INTERRUPTS_H
#define HOST_INTERRUPTS_H

namespace host {

/// Ctrl-C and the requests to end, noted for whoever asks. The handlers are the process's; they do little more than
/// take a note, so that a turn can be cancelled and what it left behind can be cleared up.
///
/// The second Ctrl-C since the last clear() asks the program to end. When nothing has cleared it two seconds later, or
/// at a third one, the process ends at once, whatever it is doing.
class Interrupts {
public:
    /// Installs the handlers of SIGINT, SIGTERM, SIGHUP and SIGALRM, and ignores SIGPIPE: output that nobody reads any
    /// more is an error of the stream. A signal that the parent had ignored stays ignored.
    static void install();

    /// Whether Ctrl-C was pressed, or an end requested, since the last clear().
    [[nodiscard]] static bool isRequested() noexcept;
    /// How often since the last clear().
    [[nodiscard]] static int countRequests() noexcept;
    /// Whether the process was asked to end for good (SIGTERM, SIGHUP, a second Ctrl-C). Stays true.
    [[nodiscard]] static bool isEndRequested() noexcept;

    /// Forgets the requests so far; an end that was requested stays so.
    static void clear() noexcept;

    /// A descriptor that is readable once a signal has come, to wait on together with others.
    [[nodiscard]] static int obtainWakeDescriptor() noexcept;

    /// What a handler does before the process ends at once: nothing but async-signal-safe calls.
    static void setLastAction(void (*action)()) noexcept;
};

}  // namespace host

#endif
