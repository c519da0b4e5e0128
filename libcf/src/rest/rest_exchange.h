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

/// The input of an exchange. All of it is borrowed while the exchange runs, and was checked before.
struct RestExchange {
    RestMethod method;
    const std::string& url;                ///< complete, with the query parameters
    const CMRestRequest& request;          ///< for its headers
    const std::vector<COJsonPiece>* body;  ///< null: no body
    const CMRestBodyReceiver* receiver;    ///< null: the response keeps its body
    const CMRestSession* session;          ///< null: no credential and no session headers
    const CMRestGlobalSettings& settings;
};

/// How an exchange ended.
struct RestOutcome {
    CMRestResult result = CMRestResult::Success;
    std::int32_t status = 0;                           ///< 0: none arrived
    std::string body{};                                ///< received body bytes that were kept
    std::size_t responseBytes = 0;                     ///< received body bytes, kept or not
    std::optional<RestClock::time_point> firstByte{};  ///< when the first body byte arrived
    bool isConnectionReused = false;                   ///< whether it used a connection of an earlier exchange
};

}  // namespace cf

#endif
