// Every request of every provider while an allocation fails: the first, the second, and so on to the last.
//
//   kai_allocation_sweep [--every N] [--row TEXT]
//
// The allocations of all libraries are meant, those of libcurl and OpenSSL too. Each row runs in three states: on a
// connection that stands, on a new one, and as the first exchange of a process (a child for each case); and each with
// one failing allocation and with all from one on. After each case nothing has changed that should not, nothing is
// leaked, and the next call works. Ends with the line "N passed, N failed".

#include <openssl/err.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "cf/assertion.h"
#include "cf/rest.h"
#include "good_service.h"
#include "heap_watch.h"
#include "host_at_work.h"
#include "request_rows.h"

namespace {

enum class State { Reused, Connecting, FirstInProcess };

const char* obtainName(State state) {
    switch (state) {
        case State::Reused:
            return "on a connection that stands";
        case State::Connecting:
            return "on a new connection";
        case State::FirstInProcess:
            return "as the first exchange of a process";
    }
    return "";
}

/// What a case found wrong, and whether its allocation was reached at all.
struct CaseResult {
    std::string complaint;
    bool isReached = false;
    bool isLeak = false;
};

std::int32_t s_lastCode = 0;

/// OpenSSL keeps the texts of a thread's last 16 errors. They are made here, so that none looks like a leak.
void fillErrorQueue() {
    for (int i = 0; i < 16; ++i) {
        ERR_raise_data(ERR_LIB_USER, ERR_R_INTERNAL_ERROR, "%s", std::string(200, 'x').c_str());
    }
    ERR_clear_error();
}

class Sweep {
public:
    Sweep(const RequestRow& row, std::size_t every)
        : m_row(row),
          m_every(every),
          m_server([this](const LoopbackRequest& request) { return m_service.answer(request); },
                   {.tls = obtainTLSOf(row.type), .isRecording = false}) {
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_server.obtainCAFile();
        settings.requestTimeout = std::chrono::seconds(20);
        settings.trace = [](const CMRestTraceRecord& record) { s_lastCode = record.resultCode; };
        KAISetHTTPSettings(settings);
    }
    ~Sweep() { KAISetHTTPSettings({}); }
    Sweep(const Sweep&) = delete;
    Sweep& operator=(const Sweep&) = delete;

    void run(State state, heap::Failing failing);

    [[nodiscard]] std::size_t countPassed() const { return m_passed; }
    [[nodiscard]] std::size_t countFailed() const { return m_failed; }
    [[nodiscard]] std::size_t countBroken() const { return m_broken; }

private:
    CaseResult runHere(State state, heap::Failing failing, std::size_t place);
    CaseResult runInChild(heap::Failing failing, std::size_t place);
    std::string tryCase(State state, heap::Failing failing, std::size_t place, bool& isReached);
    std::string performFailing(HostAtWork& host, heap::Failing failing, std::size_t place, bool& isReached,
                               bool& isDone);
    std::string checkGoingOn(HostAtWork& host);

    const RequestRow& m_row;
    std::size_t m_every;
    GoodService m_service;
    LoopbackServer m_server;
    std::size_t m_passed = 0;
    std::size_t m_failed = 0;
    std::size_t m_broken = 0;
};

void Sweep::run(State state, heap::Failing failing) {
    if (state != State::FirstInProcess) {
        fillErrorQueue();
        // What is made once in a process is made here, so that it does not look like a leak.
        for (int i = 0; i < 2; ++i) {
            static_cast<void>(runHere(state, heap::Failing::Once, 0));
        }
    }
    for (std::size_t place = 1;; place += m_every) {
        CaseResult result =
            state == State::FirstInProcess ? runInChild(failing, place) : runHere(state, failing, place);
        // The server's threads allocate too, when it suits them. What the library leaks, it leaks each time.
        for (int repeats = 0; result.isLeak && repeats < 5; ++repeats) {
            result = runHere(state, failing, place);
        }
        if (!result.complaint.empty()) {
            ++m_failed;
            std::cout << "FAILED " << m_row.name << " " << obtainName(state) << ", allocation " << place
                      << (failing == heap::Failing::Onwards ? " and all that follow: " : ": ") << result.complaint
                      << std::endl;
        } else if (result.isReached) {
            ++m_passed;
        }
        if (!result.isReached) {
            return;
        }
    }
}

CaseResult Sweep::runHere(State state, heap::Failing failing, std::size_t place) {
    CaseResult result;
    const std::ptrdiff_t blocks = heap::countLiveBlocks();
    {
        std::string complaint = tryCase(state, failing, place, result.isReached);
        result.complaint.assign(complaint);
    }
    const std::ptrdiff_t complaintBlocks = result.complaint.capacity() > 15 ? 1 : 0;
    const std::ptrdiff_t leaked = heap::countLiveBlocks() - blocks - complaintBlocks;
    if (place != 0 && leaked > 0 && result.complaint.empty()) {
        result.complaint = std::to_string(leaked) + " blocks are leaked";
        result.isLeak = true;
    }
    return result;
}

/// The child's status: 0: passed; 1: failed; 2: passed, and the allocation was not reached; 3: later exchanges fail in
/// TLS. The child writes what is wrong by itself.
CaseResult Sweep::runInChild(heap::Failing failing, std::size_t place) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        bool isReached = false;
        const std::string complaint = tryCase(State::FirstInProcess, failing, place, isReached);
        // OpenSSL remembers what it failed to load for as long as the process lives.
        if (complaint.starts_with("the next ") && s_lastCode == static_cast<std::int32_t>(CMRestResult::TLS)) {
            _exit(3);
        }
        if (!complaint.empty()) {
            std::cout << complaint << std::endl;
        }
        _exit(!complaint.empty() ? 1 : isReached ? 0 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return {std::string("the process died: ") + strsignal(WTERMSIG(status)), true};
    }
    const int code = WEXITSTATUS(status);
    m_broken += code == 3 ? 1 : 0;
    return {code == 1 ? "see the line above" : "", code != 2};
}

std::string Sweep::tryCase(State state, heap::Failing failing, std::size_t place, bool& isReached) {
    HostAtWork host(m_row.type, m_server.obtainAuthority());
    if (state != State::FirstInProcess) {
        host.prepare(m_row.step);
    }
    if (state == State::Reused) {
        static_cast<void>(host.perform(HostStep::ListModels));
    } else if (state == State::Connecting) {
        m_server.closeConnections();
    }
    const std::string before = host.describe();
    bool isDone = false;
    if (std::string complaint = performFailing(host, failing, place, isReached, isDone); !complaint.empty()) {
        return complaint;
    }
    if (!isDone && host.describe() != before) {
        return "the conversation changed: " + host.describe();
    }
    return checkGoingOn(host);
}

/// @param isDone  receives whether the operation did its work all the same
std::string Sweep::performFailing(HostAtWork& host, heap::Failing failing, std::size_t place, bool& isReached,
                                  bool& isDone) {
    const std::string question = "question";
    m_service.expectQuestion(question);
    StepResult result;
    s_lastCode = 0;
    try {
        const heap::Failure failure(place, failing);
        result = host.perform(m_row.step, question);
    } catch (const std::bad_alloc&) {
        isReached = heap::Failure::hasHappened();
        return isReached ? "" : "bad_alloc, though no allocation failed";
    }
    isReached = heap::Failure::hasHappened();
    isDone = result.error.empty();
    const bool isTurn = m_row.step == HostStep::Say || m_row.step == HostStep::SayStreamed;
    if (isDone && isTurn && result.answer != GoodService::answerTo(question)) {
        return "answered \"" + result.answer + "\"";
    }
    if (!isReached && !isDone) {
        return "failed without a failing allocation: " + result.error;
    }
    const auto code = static_cast<CMRestResult>(s_lastCode);
    if (!isDone && (code == CMRestResult::OversizedResponse || code == CMRestResult::MalformedResponse)) {
        return "blamed the response: " + result.error;
    }
    return {};
}

std::string Sweep::checkGoingOn(HostAtWork& host) {
    const std::string question = "and then?";
    m_service.expectQuestion(question);
    try {
        host.prepare(HostStep::Say);
        const StepResult result = host.perform(HostStep::Say, question);
        if (!result.error.empty()) {
            return "the next turn failed: " + result.error;
        }
        return result.answer == GoodService::answerTo(question) ? "" : "the next turn was answered " + result.answer;
    } catch (const std::exception& exception) {
        return std::string("the next call threw: ") + exception.what();
    }
}

}  // namespace

int main(int count, char** values) {
    std::size_t every = 1;
    std::string wanted;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string name = values[i];
        if (name == "--every") {
            every = std::max<std::size_t>(1, std::stoul(values[i + 1]));
        } else if (name == "--row") {
            wanted = values[i + 1];
        } else {
            std::cerr << "unknown argument: " << name << '\n';
            return 2;
        }
    }
    if (!heap::isWatched()) {
        std::cout << "a sanitizer's allocator is in use: nothing can be made to fail" << std::endl;
        return 77;
    }
    cfSetAssertionHandler([](const char*, const char*, int) {});
    std::size_t passed = 0;
    std::size_t failed = 0;
    std::size_t broken = 0;
    std::size_t cold = 0;
    // The children first, while this process has not exchanged anything yet.
    for (const State state : {State::FirstInProcess, State::Connecting, State::Reused}) {
        for (const RequestRow& row : obtainRequestRows()) {
            const bool isFirst = state == State::FirstInProcess;
            if (row.name.find(wanted) == std::string_view::npos || (isFirst && row.step != HostStep::ListModels)) {
                continue;
            }
            for (const heap::Failing failing : {heap::Failing::Once, heap::Failing::Onwards}) {
                Sweep sweep(row, every);
                sweep.run(state, failing);
                passed += sweep.countPassed();
                failed += sweep.countFailed();
                broken += sweep.countBroken();
                cold += isFirst ? sweep.countPassed() : 0;
            }
        }
    }
    // Few among all places where the first exchange of a process can fail; more would be ours.
    constexpr std::size_t kMostBrokenPercent = 2;
    std::cout << "OpenSSL remembered a failure in " << broken << " of " << cold << " first exchanges" << std::endl;
    failed += broken * 100 > kMostBrokenPercent * cold ? 1 : 0;
    std::cout << passed << " passed, " << failed << " failed" << std::endl;
    return failed == 0 ? 0 : 1;
}
