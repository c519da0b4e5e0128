#include "emulator_service.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <ctime>

LoopbackReply KAIEmulatedService::answer(const LoopbackRequest& request, KAIEmulatorScript& script) {
    try {
        return serve(request, script);
    } catch (const KAIRefusal& refusal) {
        return writeRefusal(refusal);
    }
}

LoopbackReply KAIEmulatedService::deliver(const KAIEmulatedAnswer& answer,
                                          const std::function<LoopbackReply()>& write) const {
    LoopbackReply reply = answer.refusal ? writeRefusal(*answer.refusal) : write();
    if (answer.change) {
        answer.change(reply);
    }
    return reply;
}

std::string writeJson(const KAIEmulatorJson& value, int indent) {
    return value.dump(indent, ' ', false, KAIEmulatorJson::error_handler_t::replace);
}

LoopbackReply writeJsonReply(int status, const KAIEmulatorJson& body, LoopbackFields headers) {
    LoopbackReply reply{.status = status, .headers = {{"Content-Type", "application/json"}}};
    std::ranges::move(headers, std::back_inserter(reply.headers));
    reply.body = writeJson(body);
    return reply;
}

bool isKeyAccepted(std::string_view shown, std::string_view wanted) {
    return wanted.empty() ? !shown.empty() : shown == wanted;
}

bool isBearerAccepted(const LoopbackRequest& request, const std::string& key) {
    constexpr std::string_view kScheme = "Bearer ";
    const auto* value = request.findHeader("Authorization");
    return value != nullptr && value->starts_with(kScheme) && isKeyAccepted(value->substr(kScheme.size()), key);
}

bool isJsonAnnounced(const LoopbackRequest& request) {
    const auto* type = request.findHeader("Content-Type");
    return type != nullptr && (*type == "application/json" || type->starts_with("application/json;"));
}

std::optional<KAIEmulatorJson> parseBody(const LoopbackRequest& request) {
    auto body = KAIEmulatorJson::parse(request.body, nullptr, false);
    if (body.is_discarded()) {
        return std::nullopt;
    }
    return body;
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

std::string decodePathText(std::string_view text) {
    std::string decoded;
    while (!text.empty()) {
        unsigned code = 0;
        const char* end = text.data() + std::min<std::size_t>(text.size(), 3);
        if (text.size() >= 3 && text.front() == '%' && std::from_chars(text.data() + 1, end, code, 16).ptr == end) {
            decoded.push_back(static_cast<char>(code));
            text.remove_prefix(3);
        } else {
            decoded.push_back(text.front());
            text.remove_prefix(1);
        }
    }
    return decoded;
}

bool isOffered(const std::vector<KAIEmulatedModel>& models, std::string_view name) {
    return std::ranges::find(models, name, &KAIEmulatedModel::name) != models.end();
}

std::int64_t obtainNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

std::string obtainTimestamp() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const std::time_t seconds = micros / 1'000'000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    const std::string fraction = std::to_string(micros % 1'000'000);
    return std::string(text.data(), length) + "." + std::string(6 - fraction.size(), '0') + fraction + "Z";
}

std::string makeIdentifier(std::string_view prefix, std::size_t digits) {
    static std::atomic<std::uint64_t> count{0};
    // Multiplying by an odd number keeps the value unique, and clients cannot rely on its order.
    std::uint64_t value = ++count * 0x9E3779B97F4A7C15U;
    std::string text(prefix);
    for (std::size_t i = 0; i < digits; ++i) {
        text.push_back("0123456789abcdef"[value % 16]);
        value = value / 16 + (i == 15 ? count * 0xC2B2AE3D27D4EB4FU : 0);
    }
    return text;
}
