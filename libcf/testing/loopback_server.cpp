#include "loopback_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <exception>
#include <list>
#include <mutex>
#include <thread>

#include "loopback_connection.h"
#include "loopback_http.h"
#include "loopback_socket.h"

namespace {

struct Worker {
    Worker(int socket, SSL_CTX* context, std::size_t number) : connection(socket, context), ordinal(number) {}
    LoopbackConnection connection;
    std::size_t ordinal;
    bool isDone = false;
    std::thread thread;
};

}  // namespace

class LoopbackServer::Inside {
public:
    struct Records {
        std::vector<LoopbackRequest> requests;
        std::size_t requestCount = 0;
        std::size_t malformedCount = 0;
        std::size_t connectionCount = 0;
        std::size_t openCount = 0;
        std::size_t handshakeCount = 0;
        std::size_t resumedCount = 0;
        std::size_t lateCount = 0;
        std::size_t releasedUpTo = 0;
        bool isStopping = false;
    };

    Inside(Handler handler, LoopbackOptions options)
        : m_handler(std::move(handler)), m_options(options), m_listener(options.port) {
        if (options.tls != LoopbackTLS::Off) {
            m_credentials = makeLoopbackCredentials(options.tls);
            m_caFile = std::make_unique<LoopbackPrivateFile>(m_credentials.caText);
        }
        const LoopbackBlockedSignals blocked;
        m_acceptor = std::thread([this] { acceptConnections(); });
    }
    ~Inside() { stop(); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    void stop();
    void forEachConnection(const std::function<void(LoopbackConnection&)>& action);
    void releaseStalls();
    bool waitUntil(std::chrono::milliseconds limit, const std::function<bool(const Records&)>& isReached) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return isReached(m_records); });
    }
    template <typename Action>
    auto doLocked(Action action) {
        const std::scoped_lock lock(m_mutex);
        return action(m_records);
    }

    [[nodiscard]] std::uint16_t obtainPort() const { return m_listener.obtainPort(); }
    [[nodiscard]] bool isTLS() const { return m_options.tls != LoopbackTLS::Off; }
    [[nodiscard]] std::string obtainCAFile() const { return m_caFile == nullptr ? "" : m_caFile->obtainPath(); }
    [[nodiscard]] const std::string& obtainCAText() const { return m_credentials.caText; }

private:
    void acceptConnections();
    void startWorker(int socket);
    void joinDoneWorkers();
    void serve(Worker& worker);
    void serveRequests(Worker& worker);
    bool answer(Worker& worker, LoopbackRequest request);
    bool send(LoopbackConnection& connection, const LoopbackReply& reply, const LoopbackWireReply& wire,
              std::size_t ordinal);
    bool sendLate(LoopbackConnection& connection, const LoopbackReply& reply);
    static std::size_t findFault(const LoopbackReply& reply, const LoopbackWireReply& wire);
    static bool sendBody(LoopbackConnection& connection, const LoopbackReply& reply, const LoopbackWireReply& wire,
                         std::size_t from, std::size_t to);
    static bool sendDripping(LoopbackConnection& connection, const LoopbackReply& reply, std::string_view bytes);
    bool stall(LoopbackConnection& connection, const LoopbackReply& reply, std::size_t ordinal);
    std::size_t record(const LoopbackRequest& request);
    LoopbackReply askHandler(const LoopbackRequest& request) const;

    // Fixed after construction.
    Handler m_handler;
    LoopbackOptions m_options;
    LoopbackListener m_listener;
    LoopbackCredentials m_credentials;
    std::unique_ptr<LoopbackPrivateFile> m_caFile;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    Records m_records;                             // protected by the mutex
    std::list<std::unique_ptr<Worker>> m_workers;  // protected by the mutex
    std::thread m_acceptor;
    std::mutex m_stopMutex;
};

void LoopbackServer::Inside::stop() {
    const std::scoped_lock once(m_stopMutex);
    {
        const std::scoped_lock lock(m_mutex);
        m_records.isStopping = true;
    }
    m_listener.stop();
    if (m_acceptor.joinable()) {
        m_acceptor.join();
    }
    m_listener.close();
    forEachConnection([](LoopbackConnection& connection) { connection.interrupt(); });
    std::list<std::unique_ptr<Worker>> workers;
    {
        const std::scoped_lock lock(m_mutex);
        workers.swap(m_workers);
    }
    for (const auto& worker : workers) {
        worker->thread.join();
    }
}

void LoopbackServer::Inside::forEachConnection(const std::function<void(LoopbackConnection&)>& action) {
    const std::scoped_lock lock(m_mutex);
    for (const auto& worker : m_workers) {
        action(worker->connection);
    }
}

void LoopbackServer::Inside::releaseStalls() {
    {
        const std::scoped_lock lock(m_mutex);
        m_records.releasedUpTo = m_records.requestCount;
    }
    forEachConnection([](LoopbackConnection& connection) { connection.wake(); });
}

void LoopbackServer::Inside::acceptConnections() {
    while (true) {
        const int socket = m_listener.accept();
        if (socket >= 0) {
            joinDoneWorkers();
            startWorker(socket);
        } else if (doLocked([](const Records& records) { return records.isStopping; })) {
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            // Out of descriptors or memory: the end of a connection frees some.
            std::unique_lock lock(m_mutex);
            m_changed.wait_for(lock, std::chrono::milliseconds{100});
        }
    }
}

void LoopbackServer::Inside::startWorker(int socket) {
    const std::scoped_lock lock(m_mutex);
    m_workers.push_back(std::make_unique<Worker>(socket, m_credentials.context.get(), ++m_records.connectionCount));
    ++m_records.openCount;
    Worker& worker = *m_workers.back();
    worker.thread = std::thread([this, &worker] { serve(worker); });
    m_changed.notify_all();
}

void LoopbackServer::Inside::joinDoneWorkers() {
    std::list<std::unique_ptr<Worker>> done;
    {
        const std::scoped_lock lock(m_mutex);
        for (auto worker = m_workers.begin(); worker != m_workers.end();) {
            const auto next = std::next(worker);
            if ((*worker)->isDone) {
                done.splice(done.end(), m_workers, worker);
            }
            worker = next;
        }
    }
    for (const auto& worker : done) {
        worker->thread.join();
    }
}

void LoopbackServer::Inside::serve(Worker& worker) {
    LoopbackConnection& connection = worker.connection;
    if (m_options.isSilent) {
        static_cast<void>(connection.pause(std::nullopt, [] { return false; }));
    } else if (connection.shakeHands()) {
        if (isTLS()) {
            const std::scoped_lock lock(m_mutex);
            ++m_records.handshakeCount;
            m_records.resumedCount += connection.isResumed() ? 1 : 0;
        }
        serveRequests(worker);
    }
    connection.close();
    const std::scoped_lock lock(m_mutex);
    worker.isDone = true;
    --m_records.openCount;
    m_changed.notify_all();
}

void LoopbackServer::Inside::serveRequests(Worker& worker) {
    using State = LoopbackRequestReader::State;
    LoopbackConnection& connection = worker.connection;
    LoopbackRequestReader reader;
    std::array<char, std::size_t{64} * 1024> buffer{};
    while (true) {
        const State state = reader.read();
        if (state == State::Malformed) {
            doLocked([](Records& records) { ++records.malformedCount; });
            static_cast<void>(connection.write("HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n"));
            return;
        }
        if (state == State::Complete) {
            LoopbackRequest request = reader.takeRequest();
            request.connection = worker.ordinal;
            request.isTLS = isTLS();
            if (!answer(worker, std::move(request))) {
                return;
            }
            continue;
        }
        if (reader.takeExpectation() && !connection.write("HTTP/1.1 100 Continue\r\n\r\n")) {
            return;
        }
        const std::size_t count = connection.read(buffer.data(), buffer.size());
        if (count == 0) {
            return;
        }
        reader.feed({buffer.data(), count});
    }
}

std::size_t LoopbackServer::Inside::record(const LoopbackRequest& request) {
    const std::scoped_lock lock(m_mutex);
    ++m_records.requestCount;
    if (m_options.isRecording) {
        m_records.requests.push_back(request);
        m_records.requests.back().ordinal = m_records.requestCount;
    }
    m_changed.notify_all();
    return m_records.requestCount;
}

LoopbackReply LoopbackServer::Inside::askHandler(const LoopbackRequest& request) const {
    try {
        return m_handler(request);
    } catch (const std::exception& exception) {
        return {.status = 500, .body = exception.what()};
    }
}

// False if the connection has ended.
bool LoopbackServer::Inside::answer(Worker& worker, LoopbackRequest request) {
    request.ordinal = record(request);
    LoopbackConnection& connection = worker.connection;
    const LoopbackReply reply = askHandler(request);
    switch (reply.fault) {
        case LoopbackFault::CloseBeforeReply:
            connection.close();
            return false;
        case LoopbackFault::ResetBeforeReply:
            connection.reset();
            return false;
        case LoopbackFault::StallBeforeReply:
            if (!stall(connection, reply, request.ordinal)) {
                return false;
            }
            break;
        default:
            break;
    }
    const LoopbackWireReply wire = writeLoopbackReply(reply, request.method);
    return send(connection, reply, wire, request.ordinal) && sendLate(connection, reply) && !wire.isConnectionClosed &&
           !isCloseRequested(request);
}

bool LoopbackServer::Inside::sendLate(LoopbackConnection& connection, const LoopbackReply& reply) {
    if (reply.late.empty()) {
        return true;
    }
    if (!connection.pause(reply.lateDelay, [] { return false; }) || !connection.write(reply.late)) {
        return false;
    }
    const std::scoped_lock lock(m_mutex);
    ++m_records.lateCount;
    m_changed.notify_all();
    return true;
}

bool LoopbackServer::Inside::send(LoopbackConnection& connection, const LoopbackReply& reply,
                                  const LoopbackWireReply& wire, std::size_t ordinal) {
    const bool isBroken = reply.fault >= LoopbackFault::CutInBody;
    if (!isBroken && reply.dripBytes == 0 && reply.pieces.empty() && reply.endless.empty()) {
        return connection.write(wire.head + wire.body);
    }
    const std::size_t place = isBroken ? findFault(reply, wire) : wire.body.size();
    if (!connection.write(wire.head) || !sendBody(connection, reply, wire, 0, place)) {
        return false;
    }
    if (reply.fault == LoopbackFault::CutInBody) {
        connection.abandon();
        return false;
    }
    if (reply.fault == LoopbackFault::ResetInBody) {
        connection.reset();
        return false;
    }
    if (reply.fault == LoopbackFault::StallInBody && !stall(connection, reply, ordinal)) {
        return false;
    }
    if (!sendBody(connection, reply, wire, place, wire.body.size())) {
        return false;
    }
    while (!reply.endless.empty()) {
        if (!sendDripping(connection, reply, reply.endless)) {
            return false;
        }
    }
    return true;
}

// The position of the fault in the body as sent.
std::size_t LoopbackServer::Inside::findFault(const LoopbackReply& reply, const LoopbackWireReply& wire) {
    if (!reply.faultAfterPieces) {
        return std::min(reply.faultAt.value_or(wire.body.size() / 2), wire.body.size());
    }
    const std::size_t count = std::min(*reply.faultAfterPieces, wire.pieceEnds.size());
    return count == 0 ? 0 : wire.pieceEnds[count - 1];
}

bool LoopbackServer::Inside::sendBody(LoopbackConnection& connection, const LoopbackReply& reply,
                                      const LoopbackWireReply& wire, std::size_t from, std::size_t to) {
    const std::string_view body = wire.body;
    if (reply.dripBytes != 0 || reply.pieces.empty()) {
        return sendDripping(connection, reply, body.substr(from, to - from));
    }
    while (from < to) {
        const std::size_t end = std::min(wire.findPieceEnd(from), to);
        if (!connection.write(body.substr(from, end - from))) {
            return false;
        }
        from = end;
        const bool isPieceDue = reply.pieceInterval.count() != 0 && from < wire.pieceEnds.back();
        if (isPieceDue && !connection.pause(reply.pieceInterval, [] { return false; })) {
            return false;
        }
    }
    return true;
}

bool LoopbackServer::Inside::sendDripping(LoopbackConnection& connection, const LoopbackReply& reply,
                                          std::string_view bytes) {
    const std::size_t pieceBytes = reply.dripBytes == 0 ? bytes.size() : reply.dripBytes;
    while (!bytes.empty()) {
        const auto piece = bytes.substr(0, pieceBytes);
        bytes.remove_prefix(piece.size());
        const bool isDripping = reply.dripBytes != 0;
        if (!connection.write(piece) || (isDripping && !connection.pause(reply.dripInterval, [] { return false; }))) {
            return false;
        }
    }
    return true;
}

bool LoopbackServer::Inside::stall(LoopbackConnection& connection, const LoopbackReply& reply, std::size_t ordinal) {
    const auto limit = reply.stallLimit.count() == 0 ? std::nullopt : std::optional(reply.stallLimit);
    return connection.pause(limit, [this, ordinal] {
        return doLocked([&](const Records& records) { return records.releasedUpTo >= ordinal; });
    });
}

LoopbackServer::LoopbackServer(Handler handler, LoopbackOptions options)
    : m_inside(std::make_unique<Inside>(std::move(handler), options)) {}

LoopbackServer::~LoopbackServer() = default;

std::uint16_t LoopbackServer::obtainPort() const {
    return m_inside->obtainPort();
}

std::string LoopbackServer::obtainAuthority(std::string_view hostName) const {
    return std::string(hostName).append(":").append(std::to_string(obtainPort()));
}

std::string LoopbackServer::obtainURL(std::string_view path) const {
    return std::string(m_inside->isTLS() ? "https://" : "http://").append(obtainAuthority()).append(path);
}

std::string LoopbackServer::obtainCAFile() const {
    return m_inside->obtainCAFile();
}

std::string LoopbackServer::obtainCAText() const {
    return m_inside->obtainCAText();
}

std::vector<LoopbackRequest> LoopbackServer::requests() const {
    return m_inside->doLocked([](const auto& records) { return records.requests; });
}

std::size_t LoopbackServer::countRequests() const {
    return m_inside->doLocked([](const auto& records) { return records.requestCount; });
}

std::size_t LoopbackServer::countMalformedRequests() const {
    return m_inside->doLocked([](const auto& records) { return records.malformedCount; });
}

std::size_t LoopbackServer::countConnections() const {
    return m_inside->doLocked([](const auto& records) { return records.connectionCount; });
}

std::size_t LoopbackServer::countOpenConnections() const {
    return m_inside->doLocked([](const auto& records) { return records.openCount; });
}

std::size_t LoopbackServer::countHandshakes() const {
    return m_inside->doLocked([](const auto& records) { return records.handshakeCount; });
}

std::size_t LoopbackServer::countResumedHandshakes() const {
    return m_inside->doLocked([](const auto& records) { return records.resumedCount; });
}

bool LoopbackServer::waitForRequests(std::size_t count, std::chrono::milliseconds limit) {
    return m_inside->waitUntil(limit, [&](const auto& records) { return records.requestCount >= count; });
}

bool LoopbackServer::waitForConnections(std::size_t count, std::chrono::milliseconds limit) {
    return m_inside->waitUntil(limit, [&](const auto& records) { return records.connectionCount >= count; });
}

bool LoopbackServer::waitForLateBytes(std::size_t count, std::chrono::milliseconds limit) {
    return m_inside->waitUntil(limit, [&](const auto& records) { return records.lateCount >= count; });
}

bool LoopbackServer::waitForOpenConnections(std::size_t count, std::chrono::milliseconds limit) {
    return m_inside->waitUntil(limit, [&](const auto& records) { return records.openCount <= count; });
}

void LoopbackServer::releaseStalls() {
    m_inside->releaseStalls();
}

void LoopbackServer::closeConnections() {
    m_inside->forEachConnection([](LoopbackConnection& connection) { connection.interrupt(); });
}

void LoopbackServer::stop() {
    m_inside->stop();
}
