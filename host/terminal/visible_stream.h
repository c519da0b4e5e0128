#ifndef HOST_VISIBLE_STREAM_H
#define HOST_VISIBLE_STREAM_H

#include <string>
#include <string_view>

namespace host {

/// Running text from outside that comes in pieces, made visible like makeVisible(LineBreaks::Keep) does with the whole.
///
/// What cannot be judged yet is held back: the beginning of what may be the hidden secret, and a last character whose
/// meaning depends on the next one.
class VisibleStream {
public:
    /// @param piece  whole UTF-8 characters
    /// @return what can be printed now
    [[nodiscard]] std::string add(std::string_view piece);
    /// The rest, at the text's end.
    [[nodiscard]] std::string finish();

private:
    [[nodiscard]] std::string take(std::size_t size);

    std::string m_pending;
    char32_t m_previous = 0;  ///< the last one that was printed: some characters are visible behind others only
};

}  // namespace host

#endif
