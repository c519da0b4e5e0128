#ifndef HOST_ENGINE_WORKER_PROTOCOL_H
#define HOST_ENGINE_WORKER_PROTOCOL_H

#include <cstdint>
#include <string>

#include "engine/wire.h"

namespace host {

/// The command-line word that makes this program the child process of a Database; then its standard input is the
/// socket.
constexpr const char* kWorkerWord = "--database-worker";

/// A message on the socket: the length of the content (32 bits), the kind (one byte), the content.
struct Message {
    enum class Kind : std::uint8_t {
        // To the child, exactly one of:
        ReadStructure,  ///< source, detail, the time limit
        RunScript,      ///< source, script, limits
        // From the child, in this order:
        Version,      ///< text, once the database is open
        Structure,    ///< DatabaseStructure: the last of ReadStructure
        BeginResult,  ///< names of the columns
        Row,          ///< cells
        EndResult,    ///< ResultCut
        Done,         ///< number of statements: the last of RunScript
        Failure,      ///< exit code, text: always the last message
    };
    Kind kind{};
    std::string content;
};

struct MessageHead {
    std::uint32_t length = 0;
    Message::Kind kind{};
};

/// The size of a message's head in bytes.
constexpr std::size_t kMessageHeadBytes = sizeof(std::uint32_t) + sizeof(Message::Kind);

/// Appends a message to the bytes to send. Throws std::length_error if the content is 4 GiB or larger.
template <typename... Values>
void appendMessage(std::string& target, Message::Kind kind, const Values&... values) {
    WireWriter content;
    content(values...);
    if (content.obtainBytes().size() > UINT32_MAX) {
        throw std::length_error("a message between the program's processes is too long");
    }
    WireWriter head;
    head(static_cast<std::uint32_t>(content.obtainBytes().size()), kind);
    target += head.obtainBytes();
    target += content.obtainBytes();
}

template <typename... Values>
void readMessage(const Message& message, Values&... values) {
    WireReader(message.content)(values...);
}

}  // namespace host

#endif
