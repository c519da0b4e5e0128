#ifndef CF_TESTING_LOOPBACK_HTTP_H
#define CF_TESTING_LOOPBACK_HTTP_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback_server.h"

/// A request whose bytes are taken as they come. No socket is seen here.
class LoopbackRequestReader {
public:
    enum class State : std::uint8_t { NeedsMore, Complete, Malformed };

    /// Takes bytes of the connection. Bytes after the end of a request stay for the next one.
    void feed(std::string_view bytes) { m_buffer.append(bytes); }
    /// Reads on in what was fed.
    State read();
    /// After Complete: the request; the reader then stands at the next one.
    LoopbackRequest takeRequest();
    /// True once, when the client waits for "100 Continue" before it sends its body.
    bool takeExpectation();
    /// Whether nothing of a next request has come yet.
    [[nodiscard]] bool isIdle() const { return m_buffer.empty() && m_stage == Stage::Head; }

private:
    enum class Stage : std::uint8_t { Head, LengthBody, ChunkSize, ChunkData, Trailer, Done };

    State readHead();
    State readBody();
    State readChunkSize();
    State readChunkData();
    State readTrailer();
    bool parseHead(std::string_view head);
    bool startBody();
    std::optional<std::string> takeLine();

    std::string m_buffer;
    LoopbackRequest m_request;
    Stage m_stage = Stage::Head;
    std::size_t m_remaining = 0;
    bool m_isContinueExpected = false;
};

/// A reply as bytes. A fault's place counts within `body`.
struct LoopbackWireReply {
    std::string head;
    std::string body;
    std::vector<std::size_t> pieceEnds{};  ///< where in `body` each piece ends, in rising order
    bool isConnectionClosed = false;

    /// The end of the piece that `place` lies in; the body's end behind the last piece.
    [[nodiscard]] std::size_t findPieceEnd(std::size_t place) const;
};

/// The bytes of a reply to a request of this method.
[[nodiscard]] LoopbackWireReply writeLoopbackReply(const LoopbackReply& reply, std::string_view method);

/// Whether the client asked for the connection to end after this request.
[[nodiscard]] bool isCloseRequested(const LoopbackRequest& request);

#endif
