#ifndef HOST_TEXT_SAFETY_H
#define HOST_TEXT_SAFETY_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// What becomes of line feeds and tabs when a text is made safe to print.
enum class LineBreaks {
    Keep,  ///< running text: they stay; a CR before a line feed is dropped
    Show,  ///< a cell of a table: they are shown like any control character
};

/// The text with everything visible that could act on a terminal, change the order in which text is read, or stand
/// there unseen; and without the hidden secret (setHiddenSecret).
///
/// C0 controls and DEL become their pictures (U+2400 ...), C1 controls and characters without a picture of their own
/// become "<U+202E>", and each ill-formed UTF-8 sequence becomes U+FFFD. Joiners and variation selectors stay behind
/// characters that they shape (Arabic, Indic scripts, emoji). The result is UTF-8.
[[nodiscard]] std::string makeVisible(std::string_view text, LineBreaks lineBreaks);

/// The same for one piece of a text.
/// @param previous  the character that is shown in front of the piece, 0 at the text's beginning; set to the last one
///                  of the piece
[[nodiscard]] std::string makeVisible(std::string_view text, LineBreaks lineBreaks, char32_t& previous);

/// The text as one line for a message: blanks, tabs and line ends run together into one blank each, none at the
/// ends, everything else as makeVisible; abbreviated with U+2026 where it is longer than maxColumns.
[[nodiscard]] std::string makeOneLine(std::string_view rawText, std::size_t maxColumns = 500);

/// The columns that a text made by makeVisible takes on a terminal: 2 for wide characters, 0 for combining marks.
[[nodiscard]] std::size_t measureColumns(std::string_view visibleText);

/// The beginning of a visible text that takes at most maxColumns, with U+2026 at its end where something is cut off.
[[nodiscard]] std::string abbreviateToColumns(std::string_view visibleText, std::size_t maxColumns);

}  // namespace host

#endif
