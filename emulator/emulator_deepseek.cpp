// The DeepSeek chat-completions protocol: GET /models and POST /chat/completions.

#include <algorithm>
#include <string>

#include "emulator_chat_completions.h"
#include "emulator_service.h"

namespace {

constexpr const char* kInvalidRequest = "invalid_request_error";

constexpr KAIChatDialect kDialect{
    .malformedStatus = 422,
    .refuseModel = [](const std::string&) { return KAIRefusal{.status = 400, .message = "Model Not Exist"}; },
    .hasRefusalMember = false,
    .hasCacheFigures = true,
    .keepAlive = ": keep-alive\n\n"};

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    return script.obtainModels().empty() ? std::vector<KAIEmulatedModel>{"deepseek-v4-flash", "deepseek-v4-pro"}
                                         : script.obtainModels();
}

KAIEmulatorJson writeError(const KAIRefusal& refusal) {
    const std::string type = refusal.status == 401 ? "authentication_error" : kInvalidRequest;
    return {{"error",
             {{"message", refusal.message},
              {"type", refusal.type.empty() ? type : refusal.type},
              {"param", refusal.param.empty() ? KAIEmulatorJson(nullptr) : KAIEmulatorJson(refusal.param)},
              {"code", refusal.code.empty() ? kInvalidRequest : refusal.code}}}};
}

class DeepSeekService : public KAIEmulatedService {
public:
    explicit DeepSeekService(const KAIEmulatorOptions& options) : m_key(options.key) {
        if (options.pathPrefix.empty()) {
            m_prefixes = {"", "/v1"};
        } else {
            m_prefixes = {options.pathPrefix};
        }
    }

protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override {
        const bool isModelList = isRoute(request.path, "/models");
        if (!isModelList && !isRoute(request.path, "/chat/completions")) {
            return writeJsonReply(404, {{"error_msg", "Not Found. Please check the configuration."}});
        }
        if (request.method != (isModelList ? "GET" : "POST")) {
            return writeJsonReply(405, {{"error_msg", "Method Not Allowed."}},
                                  {{"Allow", isModelList ? "GET" : "POST"}});
        }
        if (!isBearerAccepted(request, m_key)) {
            throw KAIRefusal{.status = 401, .message = "Authentication Fails, Your api key: **** is invalid"};
        }
        return isModelList ? listModels(script) : complete(request, script);
    }

    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override {
        return writeJsonReply(refusal.status, writeError(refusal));
    }

private:
    [[nodiscard]] bool isRoute(const std::string& path, const std::string& route) const {
        return std::ranges::any_of(m_prefixes, [&](const std::string& prefix) { return path == prefix + route; });
    }

    static LoopbackReply listModels(const KAIEmulatorScript& script) {
        auto data = KAIEmulatorJson::array();
        for (const auto& model : offerModels(script)) {
            KAIEmulatorJson entry{{"id", model.name}, {"object", "model"}, {"owned_by", "deepseek"}};
            entry.update(model.members);
            data.push_back(entry);
        }
        return writeJsonReply(200, {{"object", "list"}, {"data", data}});
    }

    LoopbackReply complete(const LoopbackRequest& request, KAIEmulatorScript& script) const {
        const KAIChatRequest chat = readChatRequest(request, kDialect, offerModels(script));
        const KAIEmulatedAnswer answer = script.decide(chat.turn);
        const auto identify = [](const char* type) {
            return LoopbackFields{{"Content-Type", type}, {"x-ds-trace-id", makeIdentifier("", 32)}};
        };
        return deliver(answer, [&] {
            if (chat.isStreamed) {
                return writeStreamedReply(*answer.stream, writeChatEvents(chat, answer, kDialect, writeError),
                                          identify("text/event-stream; charset=utf-8"));
            }
            return LoopbackReply{.headers = identify("application/json"),
                                 .body = writeJson(writeChatCompletion(chat.turn, answer, kDialect))};
        });
    }

    std::string m_key;
    std::vector<std::string> m_prefixes;
};

}  // namespace

std::unique_ptr<KAIEmulatedService> makeDeepSeekService(const KAIEmulatorOptions& options) {
    return std::make_unique<DeepSeekService>(options);
}
