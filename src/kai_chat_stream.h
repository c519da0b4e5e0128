#ifndef KAI_CHAT_STREAM_H
#define KAI_CHAT_STREAM_H

#include <cstdint>
#include <string>
#include <string_view>

#include "cf/json.h"
#include "cf/stream.h"
#include "kai_chat_protocol.h"

namespace kai {

/// What came of a question.
struct ChatAnswer {
    enum class Outcome : std::uint8_t {
        Complete,     ///< `text` is the answer's
        Failed,       ///< `text` is the error text, of the service or the transport
        Invalid,      ///< the response is not JSON, or broke off
        Unsupported,  ///< the response has another form than the provider's
    };
    Outcome outcome = Outcome::Invalid;
    std::string text{};
};

/// Reads an answer that comes in pieces, and tells a stream of each as soon as its bytes are there.
///
/// It holds the answer's text and one event, nothing else. A service that answers whole,
/// though it was asked for pieces, gives one piece.
class ChatStreamReader {
public:
    /// Thrown by read() when nothing that follows can make the answer complete, to end the exchange.
    struct Ended {};

    /// @param protocol  one that says how answers come in pieces
    ChatStreamReader(const ChatProtocol& protocol, const CMTextStream& stream)
        : m_protocol(protocol), m_stream(stream) {}

    /// Takes bytes of the response's body as they come, cut anywhere. Throws Ended, and what the stream's function
    /// throws.
    void read(std::string_view bytes);

    /// What the body said. To be called once, after its last byte.
    /// @param isWhole  whether the body came to its end; otherwise only the protocol's end mark makes it complete
    [[nodiscard]] ChatAnswer takeAnswer(bool isWhole);

private:
    enum class Form : std::uint8_t {
        Unknown,  ///< no line yet that tells
        Pieces,
        Whole,  ///< one JSON document
    };
    enum class State : std::uint8_t {
        Open,
        Finished,  ///< the service said why it stopped
        Ended,     ///< the end mark came
        Broken,    ///< m_answer says how
    };

    void readLine(std::string_view line);
    void readEventLine(std::string_view line);
    void readEvent();
    void readWhole();
    void recogniseForm(std::string_view line);
    void readRest();
    void fail(ChatAnswer::Outcome outcome);
    /// Fails as the service says in a document.
    void failAsToldIn(const std::string& body);
    [[nodiscard]] bool isOver() const noexcept { return m_state == State::Ended || m_state == State::Broken; }

    const ChatProtocol& m_protocol;
    const CMTextStream& m_stream;
    Form m_form = Form::Unknown;
    State m_state = State::Open;
    bool m_hasEvent = false;
    bool m_hasAnswer = false;
    std::string m_line;   // what came of a line that is not complete; of a whole document, all of it
    std::string m_event;  // the data of an event that is not complete
    COJson m_json;        // an event as it is read
    ChatPieces m_pieces;
    ChatAnswer m_answer;
};

}  // namespace kai

#endif
