#ifndef HOST_HISTORY_FILE_H
#define HOST_HISTORY_FILE_H

#include <cstddef>
#include <string>
#include <vector>

namespace host {

/// The questions of former chats, one per line: $XDG_STATE_HOME/kai/history, or ~/.local/state/kai/history. Only its
/// owner can read it. Errors of this file never disturb a chat; the history is then shorter.
class HistoryFile {
public:
    static constexpr int kMaxLines = 1000;

    HistoryFile();

    /// The last kMaxLines texts, the oldest first.
    [[nodiscard]] std::vector<std::string> read() const;
    /// Adds a text; it may have several lines.
    void append(const std::string& text) const;

private:
    std::string m_fileName;  ///< empty: no place for it
};

}  // namespace host

#endif
