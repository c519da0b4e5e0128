#ifndef TESTS_FAULTS_H
#define TESTS_FAULTS_H

#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "cf/rest.h"
#include "loopback_server.h"

/// How an exchange that meets a fault may end. Several ways are allowed where the fault alone does not decide.
struct FaultEnds {
    std::vector<CMRestResult> codes{};  ///< failures of the transport
    bool maySucceed = false;            ///< the answer is good all the same
    bool mayBeUnreadable = false;       ///< the response arrived whole, and is not what the provider answers
    int status = 0;                     ///< the status of a response that arrived whole; 0: 200
    std::string body{};                 ///< what that response says, for FailureReading
    std::string message{};              ///< its "error"."message"
};

/// Something that goes wrong with one reply.
struct Fault {
    std::string name;
    /// The reply in place of the good one.
    std::function<LoopbackReply(const LoopbackReply& good, const LoopbackRequest& request)> spoil;
    FaultEnds ends;
    /// A change of the HTTP settings for this exchange.
    std::function<void(CMRestGlobalSettings&)> change{};
    /// How long the host then waits before its next turn, so that what comes late has come.
    std::chrono::milliseconds pauseAfter{0};
};

/// Every status from 300 to 599 with an empty body, JSON, HTML and a body that is cut.
[[nodiscard]] std::vector<Fault> listStatusFaults();
/// A connection that ends or stalls: before the reply and at every byte of it.
/// @param replyBytes  how long the good reply is on the wire
[[nodiscard]] std::vector<Fault> listBrokenConnections(std::size_t replyBytes);
/// Framings that lie, broken chunks, gzip data that is damaged or too much, odd and endless headers, interim responses.
[[nodiscard]] std::vector<Fault> listMalformedReplies();

/// The reply as it stands on the wire.
[[nodiscard]] std::string writeOnWire(const LoopbackReply& reply, const LoopbackRequest& request);

#endif
