#ifndef KAI_EMULATOR_SERVICE_H
#define KAI_EMULATOR_SERVICE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_script.h"
#include "kai_emulator.h"

/// One provider's protocol: routes, checks, and the form of its replies. Used by one thread at a time.
class KAIEmulatedService {
public:
    virtual ~KAIEmulatedService() = default;

    /// The reply to one request, which may be a refusal.
    [[nodiscard]] LoopbackReply answer(const LoopbackRequest& request, KAIEmulatorScript& script);
    /// The ids of objects that clients left on the service.
    [[nodiscard]] virtual std::vector<std::string> listLeft() const { return {}; }

protected:
    /// Throws KAIRefusal for a request that the service does not accept.
    virtual LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) = 0;
    [[nodiscard]] virtual LoopbackReply writeRefusal(const KAIRefusal& refusal) const = 0;

    /// The reply for an answer: its refusal, or else the result of `write`; then modified by the answer's `change`.
    [[nodiscard]] LoopbackReply deliver(const KAIEmulatedAnswer& answer,
                                        const std::function<LoopbackReply()>& write) const;
};

/// JSON as text, on one line or indented. Text that is not UTF-8 is replaced by U+FFFD.
[[nodiscard]] std::string writeJson(const KAIEmulatorJson& value, int indent = -1);
/// A reply with a JSON body on one line.
[[nodiscard]] LoopbackReply writeJsonReply(int status, const KAIEmulatorJson& body, LoopbackFields headers = {});

/// Whether the Authorization header is "Bearer " and the key (any key but an empty one when `key` is empty).
[[nodiscard]] bool isBearerAccepted(const LoopbackRequest& request, const std::string& key);
/// Whether a client's key is the required one (any but an empty one if `wanted` is empty).
[[nodiscard]] bool isKeyAccepted(std::string_view shown, std::string_view wanted);
/// Whether the Content-Type says JSON.
[[nodiscard]] bool isJsonAnnounced(const LoopbackRequest& request);

/// The body as JSON; nothing if it is not JSON.
[[nodiscard]] std::optional<KAIEmulatorJson> parseBody(const LoopbackRequest& request);
/// The member of an object; null if there is none or `object` is not an object.
[[nodiscard]] const KAIEmulatorJson* findMember(const KAIEmulatorJson& object, const char* name);

/// A service's token count, estimated: about four bytes per token.
[[nodiscard]] std::size_t estimateTokens(std::string_view text);
[[nodiscard]] std::size_t estimateTokens(const KAIEmulatedTurn& turn);

/// A part of a path, percent-decoded.
[[nodiscard]] std::string decodePathText(std::string_view text);
/// Whether a model of this name is on offer.
[[nodiscard]] bool isOffered(const std::vector<KAIEmulatedModel>& models, std::string_view name);

/// Seconds since the epoch.
[[nodiscard]] std::int64_t obtainNow();
/// Now, as "2025-01-31T23:59:59.123456Z".
[[nodiscard]] std::string obtainTimestamp();
/// A new identifier each time: a prefix and `digits` hexadecimal digits.
[[nodiscard]] std::string makeIdentifier(std::string_view prefix, std::size_t digits);

#endif
