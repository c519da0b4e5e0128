#ifndef CF_TESTING_LOOPBACK_SERVER_H
#define CF_TESTING_LOOPBACK_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Header fields or query parameters: names and values, in the order in which they are sent.
using LoopbackFields = std::vector<std::pair<std::string, std::string>>;

/// One received request.
struct LoopbackRequest {
    std::string method;          ///< as sent
    std::string target;          ///< as sent: the second word of the request line
    std::string path;            ///< the target up to its "?", not decoded
    LoopbackFields queryParams;  ///< decoded, in order; "+" is a blank
    std::string version;         ///< "HTTP/1.1"
    LoopbackFields headers;      ///< as sent, in order, blanks around a value removed
    std::string body;            ///< after removing the transfer coding
    std::size_t ordinal = 0;     ///< from 1, in the order in which requests were complete
    std::size_t connection = 0;  ///< from 1, in the order in which connections were accepted
    bool isTLS = false;

    /// The first value of a header (case of the name is ignored); null if there is none. Valid as long as this object.
    [[nodiscard]] const std::string* findHeader(std::string_view name) const;
    /// The first value of a query parameter (exact name); null if there is none. Valid as long as this object.
    [[nodiscard]] const std::string* findQueryParam(std::string_view name) const;
};

/// How the body of a reply is delimited.
enum class LoopbackFraming : std::uint8_t { ContentLength, Chunked, UntilClose };

/// The fault of a reply.
enum class LoopbackFault : std::uint8_t {
    None,
    CloseBeforeReply,  ///< the connection is closed properly, no byte sent
    ResetBeforeReply,  ///< a TCP reset, no byte sent
    StallBeforeReply,  ///< nothing is sent until released, then the reply
    CutInBody,         ///< the connection ends after `faultAt` bytes of the body, without a TLS close
    ResetInBody,       ///< a TCP reset after `faultAt` bytes of the body
    StallInBody        ///< nothing more is sent after `faultAt` bytes until released, then the rest
};

/// The server's answer. A default-constructed one is an empty 200.
struct LoopbackReply {
    int status = 200;
    std::string reason{};  ///< empty: the standard phrase
    /// Sent in this order before the framing header. A Content-Length given here replaces the server's own.
    LoopbackFields headers{};
    std::string body{};
    LoopbackFraming framing = LoopbackFraming::ContentLength;
    std::size_t chunkBytes = 1024;  ///< length of a chunk when chunked
    bool isCompressed = false;      ///< compresses the body with gzip, with a header that says so
    /// If not empty, these pieces joined replace `body`. Each is one chunk if chunked, ends a block of the compressed
    /// data if compressed, and is sent by itself unless the body drips.
    std::vector<std::string> pieces{};
    std::chrono::milliseconds pieceInterval{0};  ///< pause after each piece but the last
    /// If present, sent instead of all of the above: bytes that are not HTTP, a 1xx before the reply, odd framings.
    std::optional<std::string> raw{};
    /// Sent repeatedly after the rest, until the client closes or the server stops. Empty: nothing.
    std::string endless{};

    LoopbackFault fault = LoopbackFault::None;
    /// Bytes before the fault, of the body as sent (compressed, chunked) or of `raw`; absent: half of it.
    std::optional<std::size_t> faultAt{};
    /// Pieces of the body before the fault; used instead of `faultAt`.
    std::optional<std::size_t> faultAfterPieces{};
    /// A stall ends after this time; 0: only when released, when the client closes, or when the server stops.
    std::chrono::milliseconds stallLimit{0};
    /// The body (or `raw`) is sent in pieces of this many bytes with a pause of `dripInterval` between them; 0: at
    /// once.
    std::size_t dripBytes = 0;
    std::chrono::milliseconds dripInterval{1};
    /// Sent unchanged when the reply is complete and `lateDelay` has passed, whether or not the client sends another
    /// request.
    std::string late{};
    std::chrono::milliseconds lateDelay{0};
    /// Closes the connection after all this without announcing it. (A "Connection: close" header closes it as well.)
    bool isClosedAfter = false;
};

/// The certificate that a server shows.
enum class LoopbackTLS : std::uint8_t {
    Off,            ///< plain HTTP
    Valid,          ///< for 127.0.0.1 and localhost, signed by the server's own CA
    WrongHostName,  ///< for another host, signed by that CA
    Expired,        ///< for 127.0.0.1 and localhost, signed by that CA, expired a day ago
    SelfSigned      ///< for 127.0.0.1 and localhost, self-signed; the CA file does not contain it
};

struct LoopbackOptions {
    LoopbackTLS tls = LoopbackTLS::Off;
    /// Connections are accepted, but no byte is sent: neither a TLS handshake nor a reply.
    bool isSilent = false;
    /// Whether requests are stored for requests(). Turn it off for a long-running or measuring server; requests are
    /// counted anyway.
    bool isRecording = true;
    /// 0: a free port.
    std::uint16_t port = 0;
};

/// An HTTP/1.1 server on 127.0.0.1 for tests: it records the requests, and misbehaves on demand. A function of the test
/// answers; it runs on the connection's own thread. Calls overlap if connections do, so the function must protect
/// shared data. If it throws, the reply has status 500 and the exception's text.
///
/// Connections stay open until the client closes them. All operations may be called from any thread.
class LoopbackServer {
public:
    using Handler = std::function<LoopbackReply(const LoopbackRequest&)>;

    /// Listens at once. Throws std::runtime_error if the port is not available or a certificate cannot be made.
    explicit LoopbackServer(Handler handler, LoopbackOptions options = {});
    /// Stops.
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    [[nodiscard]] std::uint16_t obtainPort() const;
    /// "127.0.0.1:PORT", or the given host name with the port ("localhost" works as well).
    [[nodiscard]] std::string obtainAuthority(std::string_view hostName = "127.0.0.1") const;
    /// Scheme, authority and the given path.
    [[nodiscard]] std::string obtainURL(std::string_view path = "/") const;
    /// A private file with the CA's certificate (PEM), removed with the server. Empty without TLS.
    [[nodiscard]] std::string obtainCAFile() const;
    /// The text of that file. Empty without TLS.
    [[nodiscard]] std::string obtainCAText() const;

    /// The requests so far, in the order of their completion.
    [[nodiscard]] std::vector<LoopbackRequest> requests() const;
    [[nodiscard]] std::size_t countRequests() const;
    /// The number of received texts that were not HTTP requests; they were answered with status 400.
    [[nodiscard]] std::size_t countMalformedRequests() const;
    [[nodiscard]] std::size_t countConnections() const;
    /// Connections whose thread still serves them.
    [[nodiscard]] std::size_t countOpenConnections() const;
    /// Completed TLS handshakes, including those that resumed an earlier session.
    [[nodiscard]] std::size_t countHandshakes() const;
    [[nodiscard]] std::size_t countResumedHandshakes() const;

    /// Waits until at least `count` requests are complete. False when `limit` passes first.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds{30});
    /// Waits until at least `count` connections were accepted. False when `limit` passes first.
    [[nodiscard]] bool waitForConnections(std::size_t count,
                                          std::chrono::milliseconds limit = std::chrono::seconds{30});
    /// Waits until the late bytes of at least `count` replies were sent. False when `limit` passes first.
    [[nodiscard]] bool waitForLateBytes(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds{30});
    /// Waits until at most `count` connections are open. False when `limit` passes first.
    [[nodiscard]] bool waitForOpenConnections(std::size_t count,
                                              std::chrono::milliseconds limit = std::chrono::seconds{30});

    /// Ends the stalls of all requests that are complete by now, including those that do not stall yet.
    void releaseStalls();
    /// Closes every connection that is open now, like a server whose idle timeout has passed; continues to listen.
    void closeConnections();
    /// Closes the port and every connection, whatever they are doing, and waits for the threads. Idempotent. The
    /// records remain readable.
    void stop();

private:
    class Inside;
    std::unique_ptr<Inside> m_inside;
};

#endif
