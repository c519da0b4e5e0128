#ifndef HOST_ENGINE_SCRIPT_SPLITTER_H
#define HOST_ENGINE_SCRIPT_SPLITTER_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// A dialect's syntax of texts, names and comments, as far as it concerns semicolons in them. In all dialects, a
/// single-quoted text and a double-quoted text or name double the delimiter inside.
struct ScriptSyntax {
    bool hasBackslashEscapes = false;  ///< in every quoted text (not only in E'...')
    bool hasEscapeTexts = false;       ///< E'...' has backslash escapes
    bool hasBackquotes = false;        ///< `...` is a name
    bool hasDollarQuotes = false;      ///< $tag$...$tag$ is a text
    bool hasHashComments = false;      ///< # begins a comment up to the end of the line
    bool hasNestedComments = false;    ///< /* /* */ */ is one comment
};

/// The statements of a text, without those that contain only blanks and comments.
///
/// For a malformed text this is a guess, which is harmless: the engine accepts each part as at most one statement.
[[nodiscard]] std::vector<std::string> splitScript(std::string_view script, const ScriptSyntax& syntax);

/// The first word of a statement outside of comments, for messages.
[[nodiscard]] std::string readFirstWord(std::string_view statement, const ScriptSyntax& syntax);

/// Whether a text contains a whole word; case is ignored. A word that ends in "*" stands for all words that begin with
/// it.
[[nodiscard]] bool containsWord(std::string_view text, std::string_view word);

}  // namespace host

#endif
