#ifndef KAI_CHAT_STREAM_H
#define KAI_CHAT_STREAM_H

#include <cstdint>
#include <string>
#include <string_view>

#include "cf/json.h"
#include "cf/stream.h"
#include "kai_chat_protocol.h"

namespace kai {

/// The result of asking for an answer.
struct ChatAnswer {
    enum class Outcome : std::uint8_t {
        Complete,     ///< `text` is the answer
        Failed,       ///< `text` is the error text, of the service or the transport
        Invalid,      ///< the response is not JSON or is truncated
        Unsupported,  ///< the response has an unexpected form
    };
    Outcome outcome = Outcome::Invalid;
    std::string text{};
};

/// Reads a streamed answer and passes each piece to a stream as soon as its bytes have arrived.
///
/// It stores the answer's text and one event, nothing else. If the service sends the whole answer although a streamed
/// one was requested, the stream gets it as one piece.
class ChatStreamReader {
public:
    /// Thrown by read() to end the exchange when the answer can no longer become complete.
    struct Ended {};

    /// @param protocol  must support streaming
    ChatStreamReader(const ChatProtocol& protocol, const CMTextStream& stream)
        : m_protocol(protocol), m_stream(stream) {}

    /// Reads the next bytes of the response's body; they may end anywhere. Throws Ended, and what the stream's function
    /// throws.
    void read(std::string_view bytes);

    /// The result. Must be called once, after the body's last byte.
    /// @param isWhole  whether the body is complete; if not, the answer is complete only if its last event has arrived
    [[nodiscard]] ChatAnswer takeAnswer(bool isWhole);

private:
    enum class Form : std::uint8_t {
        Unknown,  ///< no line read yet that shows it
        Pieces,
        Whole,  ///< one JSON document
    };
    enum class State : std::uint8_t {
        Open,
        Finished,  ///< the reason why the model stopped has arrived
        Ended,     ///< the last event has arrived
        Broken,    ///< failed; m_answer has the outcome
    };

    void readLine(std::string_view line);
    void readEventLine(std::string_view line);
    void readEvent();
    void readWhole();
    void recogniseForm(std::string_view line);
    void readRest();
    void fail(ChatAnswer::Outcome outcome);
    /// Fails with the service's error text in a document.
    void failAsToldIn(const std::string& body);
    [[nodiscard]] bool isOver() const noexcept { return m_state == State::Ended || m_state == State::Broken; }

    const ChatProtocol& m_protocol;
    const CMTextStream& m_stream;
    Form m_form = Form::Unknown;
    State m_state = State::Open;
    bool m_hasEvent = false;
    bool m_hasAnswer = false;
    std::string m_line;   // the start of an incomplete line; for Form::Whole, the document
    std::string m_event;  // the data of an incomplete event
    COJson m_json;        // the event being read
    ChatPieces m_pieces;
    ChatAnswer m_answer;
};

}  // namespace kai

#endif
