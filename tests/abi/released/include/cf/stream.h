#ifndef CF_STREAM_H
#define CF_STREAM_H

#include <functional>
#include <string_view>

#include "cf/export.h"

/// A scope in which answers arrive in pieces. While one lives, turns that its thread begins ask the service for the
/// answer in pieces, and the function given to it is called with each piece as it comes. Without one, turns ask for the
/// whole answer.
///
/// Scopes may be nested: the innermost one is used. While the function runs none is used, so a turn that it begins is
/// not streamed unless it opens a scope of its own. A local variable: created and destroyed on one thread, the inner
/// scope before the outer one.
class CF_EXPORT CMTextStream {
public:
    /// @param receive  called on the thread of the turn with each piece: whole UTF-8 characters, valid during the call.
    ///                 The pieces of a successful turn joined are the answer's text; after an error they are not. What
    ///                 it throws ends the turn and passes through to the turn's caller.
    explicit CMTextStream(std::function<void(std::string_view piece)> receive);
    ~CMTextStream();
    CMTextStream(const CMTextStream&) = delete;
    CMTextStream& operator=(const CMTextStream&) = delete;

    /// Calls the function with a piece. Throws what it throws.
    void tell(std::string_view piece) const;

    /// The scope that turns begun now on this thread use; null when there is none.
    [[nodiscard]] static const CMTextStream* obtainCurrent() noexcept;

private:
    std::function<void(std::string_view)> m_receive;
    const CMTextStream* m_outer;
};

#endif
