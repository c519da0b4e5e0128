#ifndef CF_TESTING_LOOPBACK_HTTP_H
#define CF_TESTING_LOOPBACK_HTTP_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback_server.h"

/// Parses requests from bytes, as they arrive. It uses no socket.
class LoopbackRequestReader {
public:
    enum class State : std::uint8_t { NeedsMore, Complete, Malformed };

    /// Adds bytes of the connection. Bytes after the end of a request are kept for the next one.
    void feed(std::string_view bytes) { m_buffer.append(bytes); }
    /// Continues to parse the bytes that were fed.
    State read();
    /// After Complete: the request; the reader then begins the next one.
    LoopbackRequest takeRequest();
    /// True once, if the client waits for "100 Continue" before it sends its body.
    bool takeExpectation();
    /// Whether no byte of a next request has arrived yet.
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

/// A reply as bytes. The position of a fault counts within `body`.
struct LoopbackWireReply {
    std::string head;
    std::string body;
    std::vector<std::size_t> pieceEnds{};  ///< the end of each piece in `body`, in ascending order
    bool isConnectionClosed = false;

    /// The end of the piece that contains `place`; after the last piece, the body's end.
    [[nodiscard]] std::size_t findPieceEnd(std::size_t place) const;
};

/// The bytes of a reply to a request of this method.
[[nodiscard]] LoopbackWireReply writeLoopbackReply(const LoopbackReply& reply, std::string_view method);

/// Whether the client requested that the connection end after this request.
[[nodiscard]] bool isCloseRequested(const LoopbackRequest& request);

#endif
