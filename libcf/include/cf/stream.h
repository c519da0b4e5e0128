#ifndef CF_STREAM_H
#define CF_STREAM_H

#include <functional>
#include <string_view>

#include "cf/export.h"

/// A scope in which answers are streamed. While such an object lives, turns begun on its thread ask the service for a
/// streamed answer, and the object's function is called with each piece as it arrives. Without one, turns ask for the
/// whole answer.
///
/// Scopes may be nested: the innermost one is used. While the function runs, no scope is in use, so a turn that it
/// begins is not streamed unless it opens a scope of its own. Use a local variable: create and destroy it on one
/// thread, and destroy the inner scope before the outer one.
class CF_EXPORT CMTextStream {
public:
    /// @param receive  called on the turn's thread with each piece: whole UTF-8 characters, valid during the call. The
    ///                 joined pieces of a successful turn are the answer's text; after an error they are not. An
    ///                 exception that it throws ends the turn and reaches the turn's caller.
    explicit CMTextStream(std::function<void(std::string_view piece)> receive);
    ~CMTextStream();
    CMTextStream(const CMTextStream&) = delete;
    CMTextStream& operator=(const CMTextStream&) = delete;

    /// Calls the function with a piece. Throws what it throws.
    void tell(std::string_view piece) const;

    /// The scope that a turn begun now on this thread would use; null if there is none.
    [[nodiscard]] static const CMTextStream* obtainCurrent() noexcept;

private:
    std::function<void(std::string_view)> m_receive;
    const CMTextStream* m_outer;
};

#endif
