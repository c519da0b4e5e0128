#ifndef HOST_TEXT_SAFETY_H
#define HOST_TEXT_SAFETY_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// What happens to line feeds and tabs when a text is made safe to print.
enum class LineBreaks {
    Keep,  ///< for running text: kept; a CR before a line feed is dropped
    Show,  ///< for table cells: shown like any control character
};

/// The text with all characters made visible that could control a terminal, change the reading order or be invisible;
/// and without the hidden secret (setHiddenSecret).
///
/// C0 controls and DEL become their symbols (U+2400 ...), C1 controls and characters without a symbol become
/// "<U+202E>", and each ill-formed UTF-8 sequence becomes U+FFFD. Joiners and variation selectors are kept after
/// characters that they shape (Arabic, Indic scripts, emoji). The result is UTF-8.
[[nodiscard]] std::string makeVisible(std::string_view text, LineBreaks lineBreaks);

/// The same for one piece of a text.
/// @param previous  the character shown before the piece, 0 at the beginning of the text; becomes the last one of the
///                  piece
[[nodiscard]] std::string makeVisible(std::string_view text, LineBreaks lineBreaks, char32_t& previous);

/// The text as one line for a message: each run of blanks, tabs and line ends becomes one blank, with none at the ends;
/// the rest as in makeVisible; abbreviated with U+2026 if it is longer than maxColumns.
[[nodiscard]] std::string makeOneLine(std::string_view rawText, std::size_t maxColumns = 500);

/// The terminal columns of a text made by makeVisible: 2 for wide characters, 0 for combining marks.
[[nodiscard]] std::size_t measureColumns(std::string_view visibleText);

/// The beginning of a visible text, at most maxColumns wide, with U+2026 at its end if it was cut.
[[nodiscard]] std::string abbreviateToColumns(std::string_view visibleText, std::size_t maxColumns);

}  // namespace host

#endif
