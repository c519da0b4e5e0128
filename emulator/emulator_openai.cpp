// The OpenAI service: models, chat completions, and the Assistants protocol (assistants, threads and messages here).

#include "emulator_openai.h"

#include <algorithm>
#include <string>

#include "emulator_chat_completions.h"
#include "emulator_openai_checks.h"

namespace {

// Lists what clients left on the service; not part of the protocol.
constexpr std::string_view kLeftPath = "/emulator/left";

std::vector<KAIEmulatedModel> offerModels(const KAIEmulatorScript& script) {
    if (!script.obtainModels().empty()) {
        return script.obtainModels();
    }
    return {{"gpt-4o-mini", {{"created", 1721172741}}},
            {"gpt-4.1", {{"created", 1744316542}}},
            {"gpt-4o", {{"created", 1715367049}}}};
}

std::vector<std::string> splitPath(std::string_view path) {
    std::vector<std::string> pieces;
    while (!path.empty()) {
        path.remove_prefix(1);
        const auto piece = path.substr(0, path.find('/'));
        pieces.push_back(decodePathText(piece));
        path.remove_prefix(piece.size());
    }
    return pieces;
}

KAIEmulatorJson writeDeletion(const std::string& id, const char* object) {
    return {{"id", id}, {"object", object}, {"deleted", true}};
}

KAIEmulatorJson orNull(const std::string& text) {
    return text.empty() ? KAIEmulatorJson(nullptr) : KAIEmulatorJson(text);
}

constexpr KAIChatDialect kDialect{
    .malformedStatus = 400,
    .refuseModel =
        [](const std::string& model) {
            return KAIRefusal{.status = 404,
                              .message = "The model `" + model + "` does not exist or you do not have access to it.",
                              .code = "model_not_found"};
        },
    .hasRefusalMember = true,
    .hasCacheFigures = false,
    .keepAlive = {}};

KAIEmulatorJson writeModel(const KAIEmulatedModel& model) {
    KAIEmulatorJson entry{{"id", model.name}, {"object", "model"}, {"created", 1700000000}, {"owned_by", "system"}};
    entry.update(model.members);
    return entry;
}

KAIEmulatorJson writeError(const KAIRefusal& refusal) {
    const std::string type = refusal.status >= 500 ? "server_error" : "invalid_request_error";
    return {{"error",
             {{"message", refusal.message},
              {"type", refusal.type.empty() ? type : refusal.type},
              {"param", orNull(refusal.param)},
              {"code", orNull(refusal.code)}}}};
}

}  // namespace

void OpenAICall::demand(std::string_view method) const {
    if (!is(method)) {
        refuseMethod();
    }
}

void OpenAICall::refuseMethod() const {
    throw KAIRefusal{.status = 405,
                     .message = "Not allowed to " + request.method + " on " + request.path + ".",
                     .code = "method_not_supported"};
}

void OpenAICall::refusePath() const {
    throw KAIRefusal{.status = 404, .message = "Invalid URL (" + request.method + " " + request.path + ")"};
}

LoopbackReply writeOpenAIReply(int status, const KAIEmulatorJson& body) {
    LoopbackReply reply{.status = status,
                        .headers = {{"Content-Type", "application/json"},
                                    {"openai-version", "2020-10-01"},
                                    {"x-request-id", makeIdentifier("req_", 32)}}};
    reply.body = writeJson(body, 2);
    return reply;
}

LoopbackReply OpenAIService::serve(const LoopbackRequest& request, KAIEmulatorScript& script) {
    if (request.path == kLeftPath && request.method == "GET") {
        return writeOpenAIReply(200, {{"left", listLeft()}});
    }
    checkKey(request);
    OpenAICall call{request, script, splitPath(request.path)};
    if (call.path.size() < 2 || call.path.front() != "v1") {
        call.refusePath();
    }
    call.path.erase(call.path.begin());
    if (call.path.front() == "models") {
        return serveModels(call);
    }
    if (call.path.front() == "chat") {
        return serveCompletions(call);
    }
    if (call.path.front() != "assistants" && call.path.front() != "threads") {
        call.refusePath();
    }
    checkBetaHeader(request);
    return call.path.front() == "assistants" ? serveAssistants(call) : serveThreads(call);
}

LoopbackReply OpenAIService::writeRefusal(const KAIRefusal& refusal) const {
    return writeOpenAIReply(refusal.status, writeError(refusal));
}

void OpenAIService::checkKey(const LoopbackRequest& request) const {
    if (request.findHeader("Authorization") == nullptr) {
        throw KAIRefusal{.status = 401,
                         .message =
                             "You didn't provide an API key. You need to provide your API key in an "
                             "Authorization header using Bearer auth (i.e. Authorization: Bearer YOUR_KEY)."};
    }
    if (!isBearerAccepted(request, m_key)) {
        throw KAIRefusal{.status = 401, .message = "Incorrect API key provided.", .code = "invalid_api_key"};
    }
}

void OpenAIService::checkBetaHeader(const LoopbackRequest& request) {
    const auto* beta = request.findHeader("OpenAI-Beta");
    if (beta == nullptr || *beta != "assistants=v2") {
        throw KAIRefusal{.status = 400,
                         .message =
                             "You must provide the 'OpenAI-Beta' header to access the Assistants API. Please "
                             "try again by setting the header 'OpenAI-Beta: assistants=v2'.",
                         .code = "invalid_beta"};
    }
}

void OpenAIService::checkModel(const KAIEmulatorJson& body, const KAIEmulatorScript& script) {
    const auto* model = findMember(body, "model");
    if (model != nullptr && model->is_string() && !isOffered(offerModels(script), model->get<std::string>())) {
        throw KAIRefusal{.status = 400,
                         .message = "The requested model '" + model->get<std::string>() + "' does not exist.",
                         .code = "model_not_found",
                         .param = "model"};
    }
}

LoopbackReply OpenAIService::serveModels(const OpenAICall& call) {
    if (call.path.size() > 2) {
        call.refusePath();
    }
    call.demand("GET");
    auto data = KAIEmulatorJson::array();
    for (const auto& model : offerModels(call.script)) {
        if (call.hasLength(1)) {
            data.push_back(writeModel(model));
        } else if (model.name == call.path[1]) {
            return writeOpenAIReply(200, writeModel(model));
        }
    }
    if (call.hasLength(2)) {
        throw KAIRefusal{.status = 404,
                         .message = "The model '" + call.path[1] + "' does not exist",
                         .code = "model_not_found",
                         .param = "model"};
    }
    return writeOpenAIReply(200, {{"object", "list"}, {"data", data}});
}

LoopbackReply OpenAIService::serveCompletions(const OpenAICall& call) const {
    if (!call.hasLength(2) || call.path[1] != "completions") {
        call.refusePath();
    }
    call.demand("POST");
    const KAIChatRequest chat = readChatRequest(call.request, kDialect, offerModels(call.script));
    const KAIEmulatedAnswer answer = call.script.decide(chat.turn);
    return deliver(answer, [&] {
        return chat.isStreamed ? writeStreamedReply(*answer.stream, writeChatEvents(chat, answer, kDialect, writeError),
                                                    {{"Content-Type", "text/event-stream; charset=utf-8"}})
                               : writeOpenAIReply(200, writeChatCompletion(chat.turn, answer, kDialect));
    });
}

LoopbackReply OpenAIService::serveAssistants(const OpenAICall& call) {
    if (call.hasLength(2)) {
        return serveAssistant(call, call.path[1]);
    }
    if (!call.hasLength(1)) {
        call.refusePath();
    }
    if (call.is("GET")) {
        return writeOpenAIReply(200, writeOpenAIList(m_store.listAssistants(), call.request));
    }
    call.demand("POST");
    const auto body = readOpenAIBody(call.request);
    static_cast<void>(readRequiredText(body, "model"));
    checkOpenAIAssistant(body);
    checkModel(body, call.script);
    return writeOpenAIReply(200, m_store.addAssistant(makeOpenAIAssistant(body)));
}

LoopbackReply OpenAIService::serveAssistant(const OpenAICall& call, const std::string& id) {
    if (call.is("DELETE")) {
        m_store.removeAssistant(id);
        return writeOpenAIReply(200, writeDeletion(id, "assistant.deleted"));
    }
    auto& assistant = m_store.obtainAssistant(id);
    if (call.is("POST")) {
        const auto body = readOpenAIBody(call.request);
        checkOpenAIAssistant(body);
        checkModel(body, call.script);
        assistant.update(body);
    } else if (!call.is("GET")) {
        call.refuseMethod();
    }
    return writeOpenAIReply(200, assistant);
}

OpenAIThread& OpenAIService::createThread(const KAIEmulatorJson& body) {
    checkOpenAIThread(body);
    auto& thread = m_store.addThread(makeOpenAIThread(body));
    if (const auto* messages = findMember(body, "messages"); messages != nullptr && !messages->is_null()) {
        std::ranges::for_each(*messages, [&](const auto& message) { thread.addMessage(message); });
    }
    return thread;
}

LoopbackReply OpenAIService::serveThreads(const OpenAICall& call) {
    if (call.hasLength(2) && call.path[1] == "runs") {
        return createThreadAndRun(call);
    }
    if (!call.hasLength(1)) {
        return serveThread(call, call.path[1]);
    }
    call.demand("POST");
    return writeOpenAIReply(200, createThread(readOpenAIBody(call.request)).object);
}

LoopbackReply OpenAIService::serveThread(const OpenAICall& call, const std::string& id) {
    if (call.hasLength(2) && call.is("DELETE")) {
        m_store.removeThread(id);
        return writeOpenAIReply(200, writeDeletion(id, "thread.deleted"));
    }
    auto& thread = m_store.obtainThread(id);
    if (call.hasLength(2)) {
        if (call.is("POST")) {
            const auto body = readOpenAIBody(call.request);
            checkOpenAIThreadChange(body);
            thread.object.update(body);
        } else {
            call.demand("GET");
        }
        return writeOpenAIReply(200, thread.object);
    }
    if (call.path[2] == "messages") {
        return serveMessages(call, thread);
    }
    if (call.path[2] == "runs") {
        return serveRuns(call, thread);
    }
    call.refusePath();
}

LoopbackReply OpenAIService::serveMessages(const OpenAICall& call, OpenAIThread& thread) {
    if (call.hasLength(4)) {
        return serveMessage(call, thread, call.path[3]);
    }
    if (!call.hasLength(3)) {
        call.refusePath();
    }
    if (call.is("GET")) {
        auto messages = thread.messages;
        if (const auto* run = call.request.findQueryParam("run_id")) {
            std::erase_if(messages, [&](const auto& message) { return message.at("run_id") != *run; });
        }
        return writeOpenAIReply(200, writeOpenAIList(std::move(messages), call.request));
    }
    call.demand("POST");
    const auto body = readOpenAIBody(call.request);
    checkOpenAIMessage(body);
    if (const auto* run = thread.findActiveRun()) {
        throw KAIRefusal{
            .status = 400,
            .message = "Can't add messages to " + call.path[1] + " while a run " + run->obtainID() + " is active."};
    }
    return writeOpenAIReply(200, thread.addMessage(body));
}

LoopbackReply OpenAIService::serveMessage(const OpenAICall& call, OpenAIThread& thread, const std::string& id) {
    auto& message = thread.obtainMessage(id);
    if (call.is("DELETE")) {
        std::erase_if(thread.messages, [&](const auto& each) { return each.at("id") == id; });
        return writeOpenAIReply(200, writeDeletion(id, "thread.message.deleted"));
    }
    if (call.is("POST")) {
        const auto body = readOpenAIBody(call.request);
        checkOpenAIMetadata(body);
        message.update(body);
    } else {
        call.demand("GET");
    }
    return writeOpenAIReply(200, message);
}

std::unique_ptr<KAIEmulatedService> makeOpenAIService(const KAIEmulatorOptions& options) {
    return std::make_unique<OpenAIService>(options);
}
