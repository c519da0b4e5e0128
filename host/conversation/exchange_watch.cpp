#include "conversation/exchange_watch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "host_error.h"
#include "kai.h"
#include "terminal/interrupts.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kGrace{3};

void checkIsReadable(const std::string& fileName) {
    errno = 0;
    std::ifstream file(fileName, std::ios::binary);
    if (file.peek() == std::ifstream::traits_type::eof()) {
        throw HostError(ExitCode::Usage,
                        "cannot read the CA file '" + makeOneLine(fileName) +
                            (errno != 0 ? "': " + std::string(std::strerror(errno)) : "': it is empty") +
                            "; check --ca-file");
    }
}

std::string describeDuration(std::chrono::microseconds duration) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
    std::string fraction = std::to_string(milliseconds % 1000);
    fraction.insert(0, 3 - fraction.size(), '0');
    return std::to_string(milliseconds / 1000) + "." + fraction + " s";
}

}  // namespace

ExchangeWatch::ExchangeWatch(Console& console, const HttpOptions& options) : m_console(console), m_options(options) {}

void ExchangeWatch::install() {
    CMRestGlobalSettings& settings = m_settings;
    if (!m_options.caFile.empty()) {
        checkIsReadable(m_options.caFile);
        settings.caBundleFile = m_options.caFile;
    }
    settings.proxyURL = m_options.proxy;
    settings.plainHTTPHosts = m_options.plainHTTPHosts;
    settings.requestTimeout = m_options.timeout;
    settings.connectTimeout = std::min(settings.connectTimeout, m_options.timeout);
    settings.cancelled = [this] { return isCancelled(); };
    settings.trace = [this](const CMRestTraceRecord& exchange) { record(exchange); };
    KAISetHTTPSettings(settings);
}

ExchangeWatch::Request::Request(ExchangeWatch& watch, Cancelling cancelling) : m_watch(watch) {
    watch.m_cancelling = cancelling;
    watch.m_graceEnd = {};
    watch.m_lastResult = 0;
    watch.m_hasExchange = false;
    watch.m_console.beginProgress();
}

ExchangeWatch::Request::~Request() {
    m_watch.m_console.endProgress();
}

bool ExchangeWatch::isCancelled() {
    m_console.updateProgress();
    if (!Interrupts::isRequested()) {
        return false;
    }
    if (m_cancelling == Cancelling::AtOnce || Interrupts::countRequests() > 1) {
        return true;
    }
    if (m_graceEnd == Clock::time_point()) {
        m_graceEnd = Clock::now() + kGrace;
    }
    return Clock::now() >= m_graceEnd;
}

void ExchangeWatch::record(const CMRestTraceRecord& exchange) {
    m_lastResult = exchange.resultCode;
    m_hasExchange = true;
    if (!m_options.isTraced) {
        return;
    }
    m_console.note("trace: " + exchange.method + " " + makeOneLine(exchange.url) + " " +
                   (exchange.status == 0 ? "no response" : std::to_string(exchange.status)) + ", " +
                   std::to_string(exchange.requestBytes) + " bytes sent, " + std::to_string(exchange.responseBytes) +
                   " received, " + describeDuration(exchange.duration) +
                   (exchange.connectionReused ? ", connection reused" : ", new connection"));
}

FailedExchange ExchangeWatch::describeLast() const {
    FailedExchange exchange;
    exchange.hasRun = m_hasExchange;
    exchange.resultCode = m_lastResult;
    exchange.isCAFileNamed = !m_options.caFile.empty();
    return exchange;
}

}  // namespace host
