#ifndef HOST_INTERRUPTS_H
#define HOST_INTERRUPTS_H

namespace host {

/// Ctrl-C and the requests to end, noted for whoever asks. The handlers are the process's; nothing is done in them but
/// taking a note, so that a turn can be cancelled and what it left behind can be cleared up.
class Interrupts {
public:
    /// Installs the handlers of SIGINT, SIGTERM and SIGHUP, and ignores SIGPIPE: output that nobody reads any more is
    /// an error of the stream. A signal that the parent had ignored stays ignored.
    static void install();

    /// Whether Ctrl-C was pressed, or an end requested, since the last clear().
    [[nodiscard]] static bool isRequested() noexcept;
    /// How often since the last clear().
    [[nodiscard]] static int countRequests() noexcept;
    /// Whether the process was asked to end for good (SIGTERM, SIGHUP). Stays true.
    [[nodiscard]] static bool isEndRequested() noexcept;

    /// Forgets the requests so far; an end that was requested stays so.
    static void clear() noexcept;

    /// A descriptor that is readable once a signal has come, to wait on together with others.
    [[nodiscard]] static int obtainWakeDescriptor() noexcept;
};

}  // namespace host

#endif
