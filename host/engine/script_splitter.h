#ifndef HOST_ENGINE_SCRIPT_SPLITTER_H
#define HOST_ENGINE_SCRIPT_SPLITTER_H

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// How a dialect writes texts, names and comments, as far as semicolons inside them are concerned. A single-quoted text
/// and a double-quoted one or name have the delimiter doubled inside, in all of them.
struct ScriptSyntax {
    bool hasBackslashEscapes = false;  ///< in every quoted text (not in E'...' alone)
    bool hasEscapeTexts = false;       ///< E'...' has them
    bool hasBackquotes = false;        ///< `...` is a name
    bool hasDollarQuotes = false;      ///< $tag$...$tag$ is a text
    bool hasHashComments = false;      ///< # begins a comment up to the end of the line
    bool hasNestedComments = false;    ///< /* /* */ */ is one comment
};

/// The statements of a text, without those that are nothing but blanks and comments.
///
/// A guess where a text is malformed, and nothing depends on it: the engine takes each piece as one statement at most.
[[nodiscard]] std::vector<std::string> splitScript(std::string_view script, const ScriptSyntax& syntax);

/// The first word of a statement that is in no comment, for messages.
[[nodiscard]] std::string readFirstWord(std::string_view statement, const ScriptSyntax& syntax);

/// Whether a word stands anywhere in a text as a whole, whatever its case. A word that ends in "*" stands for all that
/// begin so.
[[nodiscard]] bool containsWord(std::string_view text, std::string_view word);

}  // namespace host

#endif
