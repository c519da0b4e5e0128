#include "emulator_service.h"

#include <atomic>
#include <chrono>

LoopbackReply KAIEmulatedService::answer(const LoopbackRequest& request, KAIEmulatorScript& script) {
    try {
        return serve(request, script);
    } catch (const KAIRefusal& refusal) {
        return writeRefusal(refusal);
    }
}

LoopbackReply writeJsonReply(int status, const KAIEmulatorJson& body, LoopbackFields headers) {
    LoopbackReply reply{.status = status, .headers = {{"Content-Type", "application/json"}}};
    std::ranges::move(headers, std::back_inserter(reply.headers));
    reply.body = body.dump(-1, ' ', false, KAIEmulatorJson::error_handler_t::replace);
    return reply;
}

bool isKeyAccepted(std::string_view shown, std::string_view wanted) {
    return wanted.empty() ? !shown.empty() : shown == wanted;
}

bool isBearerAccepted(const LoopbackRequest& request, const std::string& key) {
    constexpr std::string_view scheme = "Bearer ";
    const auto* value = request.findHeader("Authorization");
    return value != nullptr && value->starts_with(scheme) && isKeyAccepted(value->substr(scheme.size()), key);
}

bool isJsonAnnounced(const LoopbackRequest& request) {
    const auto* type = request.findHeader("Content-Type");
    return type != nullptr && (*type == "application/json" || type->starts_with("application/json;"));
}

const KAIEmulatorJson* findMember(const KAIEmulatorJson& object, const char* name) {
    const auto found = object.is_object() ? object.find(name) : object.end();
    return found == object.end() ? nullptr : &*found;
}

std::size_t estimateTokens(std::string_view text) {
    return (text.size() + 3) / 4;
}

std::size_t estimateTokens(const KAIEmulatedTurn& turn) {
    std::size_t count = estimateTokens(turn.instructions);
    for (const auto& message : turn.messages) {
        count += estimateTokens(message.text) + 3;
    }
    return count;
}

std::int64_t obtainNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

std::string makeIdentifier(std::string_view prefix, std::size_t digits) {
    static std::atomic<std::uint64_t> count{0};
    // Multiplied by an odd number the count stays unique and does not look like one that a client could rely on.
    std::uint64_t value = ++count * 0x9E3779B97F4A7C15U;
    std::string text(prefix);
    for (std::size_t i = 0; i < digits; ++i) {
        text.push_back("0123456789abcdef"[value % 16]);
        value = value / 16 + (i == 15 ? count * 0xC2B2AE3D27D4EB4FU : 0);
    }
    return text;
}
