#ifndef KAI_EMULATOR_SERVICE_H
#define KAI_EMULATOR_SERVICE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_script.h"
#include "kai_emulator.h"

/// One provider's protocol: routes, checks, and the shape of what is answered. Used by one thread at a time.
class KAIEmulatedService {
public:
    virtual ~KAIEmulatedService() = default;

    /// The reply to one request, be it a refusal.
    [[nodiscard]] LoopbackReply answer(const LoopbackRequest& request, KAIEmulatorScript& script);
    /// What clients left on the service.
    [[nodiscard]] virtual std::vector<std::string> listLeft() const { return {}; }

protected:
    /// Throws KAIRefusal for a request that the service does not take.
    virtual LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) = 0;
    [[nodiscard]] virtual LoopbackReply writeRefusal(const KAIRefusal& refusal) const = 0;

    /// The reply that an answer asks for: its refusal, else what `write` makes; changed as the answer wants it.
    [[nodiscard]] LoopbackReply deliver(const KAIEmulatedAnswer& answer,
                                        const std::function<LoopbackReply()>& write) const;
};

/// JSON as text, on one line or indented. Text that is not UTF-8 is replaced by U+FFFD.
[[nodiscard]] std::string writeJson(const KAIEmulatorJson& value, int indent = -1);
/// A reply with a JSON body on one line.
[[nodiscard]] LoopbackReply writeJsonReply(int status, const KAIEmulatorJson& body, LoopbackFields headers = {});

/// Whether the Authorization header is "Bearer " and the key (any key but an empty one when `key` is empty).
[[nodiscard]] bool isBearerAccepted(const LoopbackRequest& request, const std::string& key);
/// Whether a key that a client shows is the one wanted (any but an empty one when `wanted` is empty).
[[nodiscard]] bool isKeyAccepted(std::string_view shown, std::string_view wanted);
/// Whether the body is announced as JSON.
[[nodiscard]] bool isJsonAnnounced(const LoopbackRequest& request);

/// The body as JSON; nothing when it is not JSON.
[[nodiscard]] std::optional<KAIEmulatorJson> parseBody(const LoopbackRequest& request);
/// The member of an object; null when there is none or `object` is not an object.
[[nodiscard]] const KAIEmulatorJson* findMember(const KAIEmulatorJson& object, const char* name);

/// What a service would count as tokens: some four bytes each.
[[nodiscard]] std::size_t estimateTokens(std::string_view text);
[[nodiscard]] std::size_t estimateTokens(const KAIEmulatedTurn& turn);

/// A piece of a path with its percent-encoding undone.
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
