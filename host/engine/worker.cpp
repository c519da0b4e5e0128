#include "engine/worker.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>

#include "engine/engine_table.h"
#include "engine/failures.h"
#include "engine/worker_protocol.h"
#include "host_error.h"

namespace host {
namespace {

constexpr int kSocket = STDIN_FILENO;
constexpr int kFailed = 1;

constexpr rlim_t kMaxMemoryBytes = rlim_t{1} << 30;
/// For one file: what sorting writes to disk.
constexpr rlim_t kMaxFileBytes = rlim_t{2} << 30;

/// Rows are sent together, but the first of them waits at most this long for others.
constexpr std::size_t kSendBytes = 64 * 1024;
constexpr std::chrono::milliseconds kSendInterval{100};

void limitResource(decltype(RLIMIT_CPU) resource, rlim_t limit) {
    rlimit limits{};
    getrlimit(resource, &limits);
    limits.rlim_cur = std::min(limits.rlim_max, limit);
    setrlimit(resource, &limits);
}

#if defined(__has_feature)
#define HOST_HAS_FEATURE(name) __has_feature(name)
#else
#define HOST_HAS_FEATURE(name) 0
#endif

std::string describeMemoryLimit() {
    return "the limit of " + std::to_string(kMaxMemoryBytes >> 20) + " MB";
}

void limitMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !HOST_HAS_FEATURE(address_sanitizer) && \
    !HOST_HAS_FEATURE(thread_sanitizer)
    // A sanitizer itself reserves far more address space than that.
    limitResource(RLIMIT_AS, kMaxMemoryBytes);
#endif
}

void limitTime(std::chrono::milliseconds limit) {
    // The parent kills the process before this limit, unless the parent itself is stopped.
    constexpr std::chrono::seconds kGrace{5};
    limitResource(RLIMIT_CPU, static_cast<rlim_t>((std::chrono::ceil<std::chrono::seconds>(limit) + kGrace).count()));
}

void limitProcess() {
    limitMemory();
    limitResource(RLIMIT_FSIZE, kMaxFileBytes);
    limitResource(RLIMIT_CORE, 0);
    // Then a file that is too long is an error of the engine, and a missing parent an error of the socket.
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
}

/// Makes the process end with its parent.
/// @return whether the parent is still alive
bool bindToParent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd socket{kSocket, 0, 0};
    return poll(&socket, 1, 0) >= 0 && (socket.revents & (POLLHUP | POLLERR)) == 0;
}

void receiveBytes(char* target, std::size_t size) {
    while (size > 0) {
        const ssize_t count = recv(kSocket, target, size, 0);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            throw std::runtime_error("the request is cut off");
        }
        if (count > 0) {
            target += count;
            size -= static_cast<std::size_t>(count);
        }
    }
}

Message receiveRequest() {
    std::string head(kMessageHeadBytes, '\0');
    receiveBytes(head.data(), head.size());
    Message request;
    std::uint32_t length = 0;
    WireReader{head}(length, request.kind);
    request.content.resize(length);
    receiveBytes(request.content.data(), length);
    return request;
}

/// Sends the results of one request to the parent.
class ResultSender : public RowReceiver {
public:
    template <typename... Values>
    void send(Message::Kind kind, const Values&... values) {
        appendMessage(m_waiting, kind, values...);
        flush();
    }

    void beginResult(const std::vector<std::string>& columns) override { send(Message::Kind::BeginResult, columns); }
    void addRow(std::vector<Cell> row) override {
        appendMessage(m_waiting, Message::Kind::Row, row);
        if (m_waiting.size() >= kSendBytes || std::chrono::steady_clock::now() - m_lastSend >= kSendInterval) {
            flush();
        }
    }
    void endResult(ResultCut cut) override { send(Message::Kind::EndResult, cut); }

private:
    void flush() {
        std::string_view rest = m_waiting;
        while (!rest.empty()) {
            const ssize_t sent = ::send(kSocket, rest.data(), rest.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR) {
                _exit(kFailed);  // there is nobody to report to
            }
            rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        }
        m_waiting.clear();
        m_lastSend = std::chrono::steady_clock::now();
    }

    std::string m_waiting;
    std::chrono::steady_clock::time_point m_lastSend = std::chrono::steady_clock::now();
};

std::unique_ptr<EngineConnection> openConnection(const std::string& source, ResultSender& sender) {
    std::unique_ptr<EngineConnection> connection = findEngine(source).open(source);
    sender.send(Message::Kind::Version, connection->obtainVersion());
    return connection;
}

// The connection is closed before the last message, because the parent kills this process when it has received that.

void readStructure(const Message& request, ResultSender& sender) {
    std::string source;
    StructureDetail detail{};
    std::chrono::milliseconds maxTime{};
    readMessage(request, source, detail, maxTime);
    limitTime(maxTime);
    std::unique_ptr<EngineConnection> connection = openConnection(source, sender);
    DatabaseStructure structure;
    try {
        structure = connection->readStructure(detail);
    } catch (const std::bad_alloc&) {
        throw HostError(ExitCode::Database,
                        "the structure of the database needs more memory than " + describeMemoryLimit());
    }
    connection.reset();
    sender.send(Message::Kind::Structure, structure);
}

void runScript(const Message& request, ResultSender& sender) {
    std::string source;
    std::string script;
    QueryLimits limits;
    readMessage(request, source, script, limits);
    limitTime(limits.maxTime);
    std::unique_ptr<EngineConnection> connection = openConnection(source, sender);
    std::uint64_t count = 0;
    try {
        count = connection->run(script, limits, sender);
    } catch (const std::bad_alloc&) {
        failSql("it needs more memory than " + describeMemoryLimit() + "; ask for less at a time");
    }
    connection.reset();
    sender.send(Message::Kind::Done, count);
}

void serve(ResultSender& sender) {
    const Message request = receiveRequest();
    switch (request.kind) {
        case Message::Kind::ReadStructure:
            return readStructure(request, sender);
        case Message::Kind::RunScript:
            return runScript(request, sender);
        default:
            throw std::runtime_error("the request is unknown");
    }
}

void sendFailure(ResultSender& sender, ExitCode code, const std::string& text) {
    sender.send(Message::Kind::Failure, code, text);
}

}  // namespace

int runDatabaseWorker() {
    if (!bindToParent()) {
        return kFailed;
    }
    limitProcess();
    ResultSender sender;
    try {
        serve(sender);
        return 0;
    } catch (const HostError& error) {
        sendFailure(sender, error.obtainCode(), error.what());
    } catch (const std::exception& error) {
        sendFailure(sender, ExitCode::Database, error.what());
    }
    return kFailed;
}

}  // namespace host
