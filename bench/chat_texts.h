#ifndef BENCH_CHAT_TEXTS_H
#define BENCH_CHAT_TEXTS_H

#include <cstddef>
#include <string>
#include <vector>

/// Texts as they stand in a conversation about a database: plain sentences, quoted names, statements over several
/// lines, and in every fourth message some letters beyond ASCII.

/// What the messages of a conversation consist of.
enum class TextKind {
    Plain,    ///< as told above
    Escapes,  ///< JSON and paths in quotes: every sixth byte or so is escaped
    Letters,  ///< Cyrillic, two bytes a letter
};

/// "plain", "escapes" or "letters". Throws std::runtime_error for another name.
[[nodiscard]] TextKind readTextKind(const std::string& name);

/// A message of the user, or (with an odd number) of the assistant: 300 bytes, or one less where a letter would be cut.
[[nodiscard]] std::string buildMessageText(std::size_t number, TextKind kind = TextKind::Plain);

/// An answer of at least `size` bytes, made of such messages.
[[nodiscard]] std::string buildAnswerText(std::size_t size);

/// A saved conversation of that many messages.
[[nodiscard]] std::string buildSessionText(std::size_t messages, TextKind kind = TextKind::Plain);

/// The body of a service's reply. The shape is chosen by the request's path.
[[nodiscard]] std::string buildReplyBody(const std::string& path, const std::string& answer);

/// The pieces of a streamed reply: a word of the answer each, and the end.
[[nodiscard]] std::vector<std::string> buildReplyPieces(const std::string& path, std::size_t words);

#endif
