#ifndef CF_SRC_REST_EXCHANGE_H
#define CF_SRC_REST_EXCHANGE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cf/rest.h"

namespace cf {

using RestClock = std::chrono::steady_clock;

enum class RestMethod : std::uint8_t { Get, Post, Delete };

/// One exchange as it is asked for. All of it is borrowed while the exchange runs, and has been checked before.
struct RestExchange {
    RestMethod method;
    const std::string& url;                ///< whole, with the query parameters
    const CMRestRequest& request;          ///< for its headers
    const std::vector<COJsonPiece>* body;  ///< null: no body
    const CMRestBodyReceiver* receiver;    ///< null: the response keeps its body
    const CMRestSession* session;          ///< null: no credential and no session headers
    const CMRestGlobalSettings& settings;
};

/// How an exchange ended.
struct RestOutcome {
    CMRestResult result = CMRestResult::Success;
    std::int32_t status = 0;                           ///< 0: none came
    std::string body{};                                ///< what came of the body and was kept
    std::size_t responseBytes = 0;                     ///< what came of the body, kept or not
    std::optional<RestClock::time_point> firstByte{};  ///< when the body began to come
    bool isConnectionReused = false;                   ///< whether a connection of an earlier exchange carried it
};

}  // namespace cf

#endif
