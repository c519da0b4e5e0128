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

/// Stands beside every exchange of the library: shows the elapsed time, passes Ctrl-C on, traces.
/// The library's settings refer to it: it must live as long as requests run.
class ExchangeWatch {
public:
    /// When Ctrl-C ends an exchange.
    enum class Cancelling {
        AtOnce,
        Reluctant,  ///< a service is making something that only its answer names: it gets a few seconds to say it
    };

    ExchangeWatch(Console& console, const HttpOptions& options);

    /// Hands the settings to the library.
    /// Throws HostError (Usage) when the CA file cannot be read.
    void install();

    /// What install() handed over, for requests of the program's own.
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

    /// What is known of the last exchange of the current request, as far as this object can tell.
    [[nodiscard]] FailedExchange describeLast() const;

    /// No elapsed time is shown for the rest of the current request: something else is being shown.
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
