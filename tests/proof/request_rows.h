#ifndef TESTS_REQUEST_ROWS_H
#define TESTS_REQUEST_ROWS_H

#include <cstdint>
#include <span>
#include <string_view>

#include "kai.h"
#include "loopback_server.h"

/// What a host does to make the library send a request.
enum class HostStep : std::uint8_t {
    ListModels,
    SetProperties,     ///< for the first time: an OpenAI assistant is created on the service
    ChangeProperties,  ///< again: an OpenAI assistant is modified there
    OpenSession,
    Say,
    SayStreamed,  ///< with a CMTextStream
    CloseSession
};

/// What a failed response says for itself, as each request reads it.
enum class FailureReading : std::uint8_t {
    MessageOrBody,  ///< "error"."message", otherwise the body
    Message,        ///< "error"."message", otherwise nothing
    Nothing,
    Ignored  ///< the failure is not reported at all
};

/// One request that the library sends, of all its providers.
struct RequestRow {
    std::string_view name;
    KAIAssistantType type;
    HostStep step;
    std::string_view method;
    std::string_view path;
    FailureReading reading;
    std::string_view suffix;  ///< behind "Invalid response" where the answer is not JSON
    bool isFollowed = false;  ///< the step sends another request at once when this one has its answer
};

/// All of them.
[[nodiscard]] std::span<const RequestRow> obtainRequestRows();

/// How the provider's service is spoken to.
[[nodiscard]] LoopbackTLS obtainTLSOf(KAIAssistantType type);

#endif
