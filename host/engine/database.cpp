#include "engine/database.h"

#include <utility>

#include "engine/engine_table.h"
#include "engine/failures.h"
#include "engine/worker_process.h"
#include "host_error.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

/// For opening the database and reading its structure.
constexpr std::chrono::seconds kMaxStructureTime{120};

/// At the limit the engine stops by itself, with its own error text; if it does not react, it is killed this much
/// later.
constexpr std::chrono::milliseconds kGrace{500};

/// One request: the child process, its deadline, and its messages.
class Request {
public:
    Request(const std::string& bytes, std::chrono::milliseconds maxTime, const StopCheck& isStopped)
        : m_isStopped(isStopped), m_deadline(WorkerProcess::Clock::now() + maxTime + kGrace) {
        m_process.send(bytes);
    }

    enum class Outcome { Message, Ended, TimedOut };

    Outcome receive(Message& message) {
        switch (m_process.receive(message, m_deadline, m_isStopped)) {
            case WorkerProcess::Outcome::Stopped:
                throw HostError(ExitCode::Cancelled, "the SQL was cancelled");
            case WorkerProcess::Outcome::TimedOut:
                return Outcome::TimedOut;
            case WorkerProcess::Outcome::Ended:
                m_end = m_process.describeEnd();
                return m_process.isProcessorTimeOver() ? Outcome::TimedOut : Outcome::Ended;
            case WorkerProcess::Outcome::Message:
                break;
        }
        if (message.kind == Message::Kind::Failure) {
            ExitCode code{};
            std::string text;
            readMessage(message, code, text);
            throw HostError(code, text);
        }
        return Outcome::Message;
    }

    /// Calls the receiver of the rows; its time does not count.
    template <typename Action>
    void callReceiver(const Action& action) {
        const auto start = WorkerProcess::Clock::now();
        action();
        m_deadline += WorkerProcess::Clock::now() - start;
    }

    /// How the process ended.
    [[nodiscard]] const std::string& obtainEnd() const noexcept { return m_end; }

private:
    const StopCheck& m_isStopped;
    WorkerProcess::Clock::time_point m_deadline;
    WorkerProcess m_process;
    std::string m_end;
};

void passOn(const Message& message, RowReceiver& receiver) {
    switch (message.kind) {
        case Message::Kind::BeginResult: {
            std::vector<std::string> columns;
            readMessage(message, columns);
            return receiver.beginResult(columns);
        }
        case Message::Kind::Row: {
            std::vector<Cell> row;
            readMessage(message, row);
            return receiver.addRow(std::move(row));
        }
        case Message::Kind::EndResult: {
            ResultCut cut{};
            readMessage(message, cut);
            return receiver.endResult(cut);
        }
        default:
            return;
    }
}

}  // namespace

Database::Database(std::string source)
    : m_source(std::move(source)), m_engine(findEngine(m_source)), m_name(m_engine.describeSource(m_source)) {}

DatabaseStructure Database::readStructure(StructureDetail detail, const StopCheck& isStopped) {
    const std::string failure = "cannot read the structure of the database '" + makeOneLine(m_name) + "': ";
    std::string bytes;
    appendMessage(bytes, Message::Kind::ReadStructure, m_source, detail, std::chrono::milliseconds(kMaxStructureTime));
    Request request(bytes, kMaxStructureTime, isStopped);
    for (Message message;;) {
        switch (request.receive(message)) {
            case Request::Outcome::TimedOut:
                throw HostError(ExitCode::Database,
                                failure + "it takes longer than " + std::to_string(kMaxStructureTime.count()) + " s");
            case Request::Outcome::Ended:
                throw HostError(ExitCode::Database, failure + "the engine ended (" + request.obtainEnd() + ")");
            case Request::Outcome::Message:
                break;
        }
        if (message.kind == Message::Kind::Version) {
            readMessage(message, m_version);
        } else if (message.kind == Message::Kind::Structure) {
            DatabaseStructure structure;
            readMessage(message, structure);
            return structure;
        }
    }
}

std::size_t Database::run(const std::string& script, const QueryLimits& limits, RowReceiver& receiver,
                          const StopCheck& isStopped) {
    std::string bytes;
    appendMessage(bytes, Message::Kind::RunScript, m_source, script, limits);
    Request request(bytes, limits.maxTime, isStopped);
    for (Message message;;) {
        switch (request.receive(message)) {
            case Request::Outcome::TimedOut:
                failTimeout(limits.maxTime);
            case Request::Outcome::Ended:
                failSql("the engine ended while it ran (" + request.obtainEnd() + "); ask for a simpler statement");
            case Request::Outcome::Message:
                break;
        }
        if (message.kind == Message::Kind::Version) {
            readMessage(message, m_version);
        } else if (message.kind == Message::Kind::Done) {
            std::uint64_t count = 0;
            readMessage(message, count);
            return count;
        } else {
            request.callReceiver([&] { passOn(message, receiver); });
        }
    }
}

}  // namespace host
