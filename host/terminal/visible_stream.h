#ifndef HOST_VISIBLE_STREAM_H
#define HOST_VISIBLE_STREAM_H

#include <string>
#include <string_view>

namespace host {

/// Makes running text visible that arrives in pieces, as makeVisible(LineBreaks::Keep) does with a whole text.
///
/// It holds back what it cannot decide yet: the possible start of the hidden secret, and a last character that depends
/// on the next one.
class VisibleStream {
public:
    /// @param piece  whole UTF-8 characters
    /// @return the text that can be printed now
    [[nodiscard]] std::string add(std::string_view piece);
    /// The rest, at the end of the text.
    [[nodiscard]] std::string finish();

private:
    [[nodiscard]] std::string take(std::size_t size);

    std::string m_pending;
    char32_t m_previous = 0;  ///< the last printed character: some characters are kept only after certain others
};

}  // namespace host

#endif
