#ifndef HOST_EXCHANGE_WATCH_H
#define HOST_EXCHANGE_WATCH_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "cf/rest.h"
#include "conversation/advice.h"
#include "terminal/console.h"

namespace host {

/// What the command line says about HTTP.
struct HttpOptions {
    std::string caFile;
    std::string proxy;
    std::vector<std::string> plainHTTPHosts;
    std::chrono::milliseconds timeout{std::chrono::minutes{10}};
    bool isTraced = false;
};

/// Watches every exchange of the library: shows the elapsed time, cancels on Ctrl-C, traces. The library's settings
/// refer to it, so it must live as long as requests run.
class ExchangeWatch {
public:
    /// When Ctrl-C ends an exchange.
    enum class Cancelling {
        AtOnce,
        Reluctant,  ///< a service is creating something that only its answer names: wait a few seconds for the answer
    };

    ExchangeWatch(Console& console, const HttpOptions& options);

    /// Sets the library's HTTP settings.
    /// Throws HostError (Usage) if the CA file cannot be read.
    void install();

    /// The settings that install() has set, for the program's own requests.
    [[nodiscard]] const CMRestGlobalSettings& obtainSettings() const noexcept { return m_settings; }

    /// A scope around the exchanges of one request of the library (a turn, a list of models, setting up).
    class Request {
    public:
        Request(ExchangeWatch& watch, Cancelling cancelling);
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

    private:
        ExchangeWatch& m_watch;
    };

    /// What this object knows about the last exchange of the current request.
    [[nodiscard]] FailedExchange describeLast() const;

    /// Hides the elapsed time for the rest of the current request, because something else is shown.
    void endProgress() { m_console.endProgress(); }

private:
    [[nodiscard]] bool isCancelled();
    void record(const CMRestTraceRecord& exchange);

    Console& m_console;
    HttpOptions m_options;
    CMRestGlobalSettings m_settings;
    Cancelling m_cancelling = Cancelling::AtOnce;
    std::chrono::steady_clock::time_point m_graceEnd;
    std::int32_t m_lastResult = 0;
    bool m_hasExchange = false;
};

}  // namespace host

#endif
