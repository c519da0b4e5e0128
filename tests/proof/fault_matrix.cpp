// Every request of every provider against everything that can go wrong with its reply.
//
//   kai_fault_matrix [--every N] [--row TEXT] [--fault TEXT] [--list]
//
// After each case: the operation told the documented text, what the host can see of its conversation is as it was, the
// next turn gets its own answer, and no descriptor stays open. Ends with the line "N passed, N failed".

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "cf/assertion.h"
#include "cf/rest.h"
#include "faults.h"
#include "good_service.h"
#include "host_at_work.h"
#include "process_figures.h"
#include "request_rows.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Arguments {
    std::size_t every = 1;
    std::string row;
    std::string fault;
    bool isList = false;
};

bool isCodeAllowed(const FaultEnds& ends, std::int32_t code) {
    return std::any_of(ends.codes.begin(), ends.codes.end(),
                       [code](CMRestResult allowed) { return static_cast<std::int32_t>(allowed) == code; });
}

std::string describeCode(std::int32_t code) {
    return CF::obtainAppFactory()->obtainErrorTextService()->describe(code).message;
}

/// The text of a response that arrived whole with a status other than success.
std::string writeStatusText(const RequestRow& row, const FaultEnds& ends) {
    const std::string transportText = describeCode(ends.status);
    switch (row.reading) {
        case FailureReading::MessageOrBody:
            return !ends.message.empty() ? ends.message : !ends.body.empty() ? ends.body : transportText;
        case FailureReading::Message:
            return !ends.message.empty() ? ends.message : transportText;
        case FailureReading::Nothing:
            return transportText;
        case FailureReading::Ignored:
            return {};
    }
    return {};
}

bool isUnreadableText(const RequestRow& row, const std::string& error) {
    return (error.starts_with("Invalid response") || error.starts_with("Unsupported data format")) &&
           (error.ends_with(row.suffix) || error.find(": p/") != std::string::npos);
}

/// Something that is wrong with the service as a whole while a request is made, and how the request ends then.
struct Circumstance {
    const char* name;
    LoopbackOptions options;  ///< of the server that stands in for the service
    bool isListening;
    std::vector<CMRestResult> codes;
    LoopbackFault fault = LoopbackFault::None;    ///< of the row's reply
    std::chrono::milliseconds cancelAfter{0};     ///< 0: never
    std::chrono::milliseconds connectTimeout{0};  ///< 0: as it is by default
};

std::vector<Circumstance> listCircumstances(bool isTLS) {
    using namespace std::chrono_literals;
    using enum CMRestResult;
    const LoopbackTLS good = isTLS ? LoopbackTLS::Valid : LoopbackTLS::Off;
    std::vector<Circumstance> all{
        {"nobody listens", {.tls = good}, false, {NoConnection}},
        {"cancelled before the reply", {.tls = good}, true, {Cancelled}, LoopbackFault::StallBeforeReply, 20ms},
        {"cancelled in the body", {.tls = good}, true, {Cancelled}, LoopbackFault::StallInBody, 20ms},
    };
    if (isTLS) {
        all.push_back({"cancelled in the handshake",
                       {.tls = good, .isSilent = true},
                       true,
                       {Cancelled},
                       LoopbackFault::None,
                       20ms});
        all.push_back({"an expired certificate", {.tls = LoopbackTLS::Expired}, true, {OutdatedCertificate}});
        all.push_back(
            {"another host's certificate", {.tls = LoopbackTLS::WrongHostName}, true, {WrongHostCertificate}});
        all.push_back({"a certificate of nobody", {.tls = LoopbackTLS::SelfSigned}, true, {UntrustedCertificate}});
        all.push_back({"plain HTTP",
                       {.tls = LoopbackTLS::Off},
                       true,
                       {PlainHTTPServer, TLSTimeout},
                       LoopbackFault::None,
                       0ms,
                       60ms});
        all.push_back(
            {"no TLS handshake", {.tls = good, .isSilent = true}, true, {TLSTimeout}, LoopbackFault::None, 0ms, 60ms});
    } else {
        all.push_back({"TLS", {.tls = LoopbackTLS::Valid}, true, {BrokenConnection, MalformedResponse}});
    }
    return all;
}

/// One row's service and the cases that run against it.
class RowRun {
public:
    RowRun(const RequestRow& row, const Arguments& arguments)
        : m_row(row),
          m_arguments(arguments),
          m_server([this](const LoopbackRequest& request) { return m_service.answer(request); },
                   {.tls = obtainTLSOf(row.type), .isRecording = false}) {}

    void run(std::size_t& number);
    void runCircumstances(std::size_t& number);

    [[nodiscard]] std::size_t countPassed() const { return m_passed; }
    [[nodiscard]] std::size_t countFailed() const { return m_failed; }

private:
    void runCase(const std::string& name, const std::function<std::string()>& tryIt);
    std::string tryCase(const Fault& fault);
    std::string tryCircumstance(const Circumstance& circumstance);
    std::string tryIdleClose();
    std::string checkEnd(const FaultEnds& ends, const StepResult& result) const;
    std::string askNext();
    std::string checkGoingOn();
    std::size_t measureReply();
    void applySettings(const Fault* fault) { applySettings(fault, m_server.obtainCAFile()); }
    void applySettings(const Fault* fault, const std::string& caFile);

    const RequestRow& m_row;
    const Arguments& m_arguments;
    GoodService m_service;
    LoopbackServer m_server;
    std::unique_ptr<HostAtWork> m_host;
    Clock::time_point m_cancelTime = Clock::time_point::max();
    std::chrono::milliseconds m_connectTimeout{0};
    bool m_isServiceAtFault = false;
    std::int32_t m_lastCode = 0;
    std::size_t m_question = 0;
    std::size_t m_passed = 0;
    std::size_t m_failed = 0;
};

void RowRun::applySettings(const Fault* fault, const std::string& caFile) {
    CMRestGlobalSettings settings;
    settings.caBundleFile = caFile;
    settings.cancelled = [this] { return Clock::now() >= m_cancelTime; };
    if (m_connectTimeout.count() != 0) {
        settings.connectTimeout = m_connectTimeout;
    }
    settings.requestTimeout = std::chrono::seconds(20);
    settings.trace = [this](const CMRestTraceRecord& record) {
        // Where the service as a whole is at fault, an earlier request of the same step may be the one that fails.
        if (m_isServiceAtFault || (record.method == m_row.method && record.url.find(m_row.path) != std::string::npos)) {
            m_lastCode = record.resultCode;
        }
    };
    if (fault != nullptr && fault->change) {
        fault->change(settings);
    }
    KAISetHTTPSettings(settings);
}

std::size_t RowRun::measureReply() {
    std::size_t size = 0;
    applySettings(nullptr);
    m_host = std::make_unique<HostAtWork>(m_row.type, m_server.obtainAuthority());
    m_host->prepare(m_row.step);
    m_service.spoil(&m_row, [&size](const LoopbackReply& good, const LoopbackRequest& request) {
        size = writeOnWire(good, request).size();
        return good;
    });
    const StepResult result = m_host->perform(m_row.step, "question 0");
    m_service.spoil(nullptr);
    if (size == 0 || !result.error.empty()) {
        std::cout << "FAILED " << m_row.name << ": the request was not made: " << result.error << '\n';
        ++m_failed;
    }
    m_host.reset();
    return size;
}

void RowRun::run(std::size_t& number) {
    std::vector<Fault> faults = listStatusFaults();
    for (auto& more : {listBrokenConnections(measureReply()), listMalformedReplies()}) {
        faults.insert(faults.end(), more.begin(), more.end());
    }
    if (m_row.isFollowed) {
        // What comes while the next request is answered already cannot be told from its answer.
        std::erase_if(faults, [](const Fault& fault) { return fault.pauseAfter.count() != 0; });
    }
    for (const Fault& fault : faults) {
        if (++number % m_arguments.every != 0 || fault.name.find(m_arguments.fault) == std::string::npos) {
            continue;
        }
        if (m_arguments.isList) {
            std::cout << m_row.name << ": " << fault.name << '\n';
        } else {
            runCase(fault.name, [this, &fault] { return tryCase(fault); });
        }
    }
    m_host.reset();
    KAISetHTTPSettings({});
}

/// These take a server each, which costs a key and a certificate: they are not thinned out.
void RowRun::runCircumstances(std::size_t& number) {
    if (m_row.reading == FailureReading::Ignored) {
        return;  // never the first request of its step: the one before it would fail
    }
    for (const Circumstance& circumstance : listCircumstances(obtainTLSOf(m_row.type) != LoopbackTLS::Off)) {
        if (std::string_view(circumstance.name).find(m_arguments.fault) != std::string_view::npos) {
            ++number;
            runCase(circumstance.name, [this, &circumstance] { return tryCircumstance(circumstance); });
        }
    }
    ++number;
    runCase("closed while idle", [this] { return tryIdleClose(); });
    m_host.reset();
    KAISetHTTPSettings({});
}

void RowRun::runCase(const std::string& name, const std::function<std::string()>& tryIt) {
    std::string complaint;
    try {
        complaint = tryIt();
    } catch (const std::exception& exception) {
        complaint = std::string("an exception: ") + exception.what();
    }
    m_service.spoil(nullptr);
    if (complaint.empty()) {
        ++m_passed;
        return;
    }
    ++m_failed;
    m_host.reset();  // whatever is wrong with it must not spoil the cases that follow
    std::cout << "FAILED " << m_row.name << ": " << name << ": " << complaint << std::endl;
}

std::string RowRun::tryCase(const Fault& fault) {
    applySettings(nullptr);
    if (!m_host || m_row.step == HostStep::SetProperties) {
        m_host = std::make_unique<HostAtWork>(m_row.type, m_server.obtainAuthority());
    }
    m_host->forgetSession();
    m_host->prepare(m_row.step);
    const std::string before = m_host->describe();
    m_lastCode = 0;
    m_service.spoil(&m_row, fault.spoil);
    applySettings(&fault);
    const StepResult result = m_host->perform(m_row.step, askNext());
    const bool isReached = m_service.countSpoiled() != 0;
    m_service.spoil(nullptr);
    applySettings(nullptr);
    if (!isReached) {
        return "the request was not made";
    }
    if (std::string complaint = checkEnd(fault.ends, result); !complaint.empty()) {
        return complaint;
    }
    if (!result.error.empty() && m_host->describe() != before) {
        return "the conversation changed: " + m_host->describe() + "\nbefore: " + before;
    }
    std::this_thread::sleep_for(fault.pauseAfter);
    return checkGoingOn();
}

std::string RowRun::tryCircumstance(const Circumstance& circumstance) {
    // A service of its own, which gives its port to another server and gets it back.
    auto server =
        std::make_unique<LoopbackServer>([this](const LoopbackRequest& request) { return m_service.answer(request); },
                                         LoopbackOptions{.tls = obtainTLSOf(m_row.type), .isRecording = false});
    const std::uint16_t port = server->obtainPort();
    const auto serve = [this, &server, port](LoopbackOptions options) {
        server.reset();
        options.port = port;
        options.isRecording = false;
        server = std::make_unique<LoopbackServer>(
            [this](const LoopbackRequest& request) { return m_service.answer(request); }, options);
        applySettings(nullptr, server->obtainCAFile());
    };
    applySettings(nullptr, server->obtainCAFile());
    m_host = std::make_unique<HostAtWork>(m_row.type, server->obtainAuthority());
    m_host->prepare(m_row.step);
    const std::string before = m_host->describe();

    serve(circumstance.options);
    if (!circumstance.isListening) {
        server->stop();
    }
    m_lastCode = 0;
    m_service.spoil(&m_row, [&circumstance](const LoopbackReply& good, const LoopbackRequest&) {
        LoopbackReply reply = good;
        reply.fault = circumstance.fault;
        return reply;
    });
    m_cancelTime =
        circumstance.cancelAfter.count() == 0 ? Clock::time_point::max() : Clock::now() + circumstance.cancelAfter;
    m_connectTimeout = circumstance.connectTimeout;
    m_isServiceAtFault = true;
    // Self-signed: trusted is the authority of the good service, whose file went with it.
    applySettings(nullptr, server->obtainCAFile());
    const StepResult result = m_host->perform(m_row.step, askNext());
    m_service.spoil(nullptr);
    m_cancelTime = Clock::time_point::max();
    m_connectTimeout = {};
    m_isServiceAtFault = false;
    if (std::string complaint = checkEnd({.codes = circumstance.codes}, result); !complaint.empty()) {
        return complaint;
    }
    if (!result.error.empty() && m_host->describe() != before) {
        return "the conversation changed: " + m_host->describe();
    }
    serve({.tls = obtainTLSOf(m_row.type)});
    std::string complaint = checkGoingOn();
    m_host.reset();
    return complaint;
}

/// A kept connection that the server closed is replaced without a word.
std::string RowRun::tryIdleClose() {
    applySettings(nullptr);
    m_host = std::make_unique<HostAtWork>(m_row.type, m_server.obtainAuthority());
    m_host->prepare(m_row.step);
    static_cast<void>(m_host->perform(HostStep::ListModels));
    m_server.closeConnections();
    const StepResult result = m_host->perform(m_row.step, askNext());
    return result.error.empty() ? checkGoingOn() : "failed: " + result.error;
}

std::string RowRun::checkEnd(const FaultEnds& ends, const StepResult& result) const {
    if (m_row.reading == FailureReading::Ignored) {
        return result.error.empty() ? "" : "the failure of this request is none of the operation's: " + result.error;
    }
    if (ends.status != 0) {
        const std::string expected = writeStatusText(m_row, ends);
        return result.error == expected ? "" : "said \"" + result.error + "\", not \"" + expected + "\"";
    }
    if (result.error.empty()) {
        const bool isTurn = m_row.step == HostStep::Say || m_row.step == HostStep::SayStreamed;
        if (isTurn && result.answer != GoodService::answerTo("question " + std::to_string(m_question))) {
            return "answered \"" + result.answer + "\"";
        }
        // A streamed answer is complete with its end mark, whatever becomes of the bytes behind that.
        const bool maySucceed =
            ends.maySucceed || m_row.step == HostStep::CloseSession || m_row.step == HostStep::SayStreamed;
        return maySucceed ? "" : "succeeded";
    }
    // A streamed answer is read before it is known whether it came whole: the reader may end the exchange first.
    const bool wasEndedByReader =
        m_row.step == HostStep::SayStreamed && m_lastCode == static_cast<std::int32_t>(CMRestResult::Interrupted);
    const bool mayBeUnreadable = wasEndedByReader || (m_lastCode == 0 && ends.mayBeUnreadable);
    if (mayBeUnreadable && isUnreadableText(m_row, result.error)) {
        return {};
    }
    if (!isCodeAllowed(ends, m_lastCode)) {
        return "ended with the code " + std::to_string(m_lastCode) + " and \"" + result.error + "\"";
    }
    const std::string expected = describeCode(m_lastCode);
    return result.error == expected ? "" : "said \"" + result.error + "\", not \"" + expected + "\"";
}

std::string RowRun::askNext() {
    std::string question = "question " + std::to_string(++m_question);
    m_service.expectQuestion(question);
    return question;
}

std::string RowRun::checkGoingOn() {
    const std::string question = askNext();
    m_host->prepare(HostStep::Say);
    const StepResult result = m_host->perform(HostStep::Say, question);
    if (!result.error.empty()) {
        return "the next turn failed: " + result.error;
    }
    return result.answer == GoodService::answerTo(question) ? ""
                                                            : "the next turn was answered \"" + result.answer + "\"";
}

Arguments readArguments(int count, char** values) {
    Arguments arguments;
    for (int i = 1; i < count; ++i) {
        const std::string name = values[i];
        if (name == "--list") {
            arguments.isList = true;
        } else if (i + 1 < count && name == "--every") {
            arguments.every = std::max<std::size_t>(1, std::stoul(values[++i]));
        } else if (i + 1 < count && name == "--row") {
            arguments.row = values[++i];
        } else if (i + 1 < count && name == "--fault") {
            arguments.fault = values[++i];
        } else {
            std::cerr << "unknown argument: " << name << '\n';
            std::exit(2);
        }
    }
    return arguments;
}

}  // namespace

int main(int count, char** values) {
    const Arguments arguments = readArguments(count, values);
    cfSetAssertionHandler([](const char*, const char*, int) {});
    std::size_t number = 0;
    std::size_t passed = 0;
    std::size_t failed = 0;
    for (const RequestRow& row : obtainRequestRows()) {
        if (row.name.find(arguments.row) == std::string_view::npos) {
            continue;
        }
        const std::size_t descriptors = countDescriptors();
        {
            RowRun run(row, arguments);
            run.run(number);
            if (!arguments.isList) {
                run.runCircumstances(number);
            }
            passed += run.countPassed();
            failed += run.countFailed();
        }
        if (countDescriptors() != descriptors) {
            std::cout << "FAILED " << row.name << ": " << countDescriptors() << " descriptors are open, not "
                      << descriptors << '\n';
            ++failed;
        }
    }
    std::cout << passed << " passed, " << failed << " failed" << std::endl;
    return failed == 0 ? 0 : 1;
}
