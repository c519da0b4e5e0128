// The OpenAI Assistants protocol: models, assistants, threads, messages and runs, kept on the service.

#include <algorithm>
#include <string>

#include "emulator_openai_checks.h"
#include "emulator_openai_objects.h"
#include "emulator_service.h"

namespace {

// Where a client may see what was left on the service; it is no part of the protocol.
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

LoopbackReply writeReply(int status, const KAIEmulatorJson& body) {
    LoopbackReply reply{.status = status,
                        .headers = {{"Content-Type", "application/json"},
                                    {"openai-version", "2020-10-01"},
                                    {"x-request-id", makeIdentifier("req_", 32)}}};
    reply.body = writeJson(body, 2);
    return reply;
}

KAIEmulatorJson writeDeletion(const std::string& id, const char* object) {
    return {{"id", id}, {"object", object}, {"deleted", true}};
}

KAIEmulatorJson orNull(const std::string& text) {
    return text.empty() ? KAIEmulatorJson(nullptr) : KAIEmulatorJson(text);
}

// A request on its way to the object that it is about.
struct Call {
    const LoopbackRequest& request;
    KAIEmulatorScript& script;
    std::vector<std::string> path;  // after "/v1"

    [[nodiscard]] bool is(std::string_view method) const { return request.method == method; }
    [[nodiscard]] bool hasLength(std::size_t length) const { return path.size() == length; }
    [[noreturn]] void refuseMethod() const {
        throw KAIRefusal{.status = 405,
                         .message = "Not allowed to " + request.method + " on " + request.path + ".",
                         .code = "method_not_supported"};
    }
    [[noreturn]] void refusePath() const {
        throw KAIRefusal{.status = 404, .message = "Invalid URL (" + request.method + " " + request.path + ")"};
    }
};

class OpenAIService : public KAIEmulatedService {
public:
    explicit OpenAIService(const KAIEmulatorOptions& options) : m_key(options.key) {}

    std::vector<std::string> listLeft() const override { return m_store.listIdentifiers(); }

protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override;
    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override;

private:
    void checkKey(const LoopbackRequest& request) const;
    static void checkBetaHeader(const LoopbackRequest& request);
    static void checkModel(const KAIEmulatorJson& body, const KAIEmulatorScript& script);

    static LoopbackReply serveModels(const Call& call);
    LoopbackReply serveAssistants(const Call& call);
    LoopbackReply serveAssistant(const Call& call, const std::string& id);
    LoopbackReply serveThreads(const Call& call);
    LoopbackReply serveThread(const Call& call, const std::string& id);
    static LoopbackReply serveMessages(const Call& call, OpenAIThread& thread);
    LoopbackReply serveRuns(const Call& call, OpenAIThread& thread);
    static LoopbackReply serveRun(const Call& call, OpenAIThread& thread, const std::string& id);
    LoopbackReply createRun(const Call& call, OpenAIThread& thread);

    std::string m_key;
    OpenAIStore m_store;
};

LoopbackReply OpenAIService::serve(const LoopbackRequest& request, KAIEmulatorScript& script) {
    if (request.path == kLeftPath && request.method == "GET") {
        return writeReply(200, {{"left", listLeft()}});
    }
    checkKey(request);
    Call call{request, script, splitPath(request.path)};
    if (call.path.size() < 2 || call.path.front() != "v1") {
        call.refusePath();
    }
    call.path.erase(call.path.begin());
    if (call.path.front() == "models") {
        return serveModels(call);
    }
    if (call.path.front() != "assistants" && call.path.front() != "threads") {
        call.refusePath();
    }
    checkBetaHeader(request);
    return call.path.front() == "assistants" ? serveAssistants(call) : serveThreads(call);
}

LoopbackReply OpenAIService::writeRefusal(const KAIRefusal& refusal) const {
    const std::string type = refusal.status >= 500 ? "server_error" : "invalid_request_error";
    return writeReply(refusal.status, {{"error",
                                        {{"message", refusal.message},
                                         {"type", refusal.type.empty() ? type : refusal.type},
                                         {"param", orNull(refusal.param)},
                                         {"code", orNull(refusal.code)}}}});
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

LoopbackReply OpenAIService::serveModels(const Call& call) {
    if (!call.hasLength(1)) {
        call.refusePath();
    }
    if (!call.is("GET")) {
        call.refuseMethod();
    }
    auto data = KAIEmulatorJson::array();
    for (const auto& model : offerModels(call.script)) {
        KAIEmulatorJson entry{{"id", model.name}, {"object", "model"}, {"created", 1700000000}, {"owned_by", "system"}};
        entry.update(model.members);
        data.push_back(entry);
    }
    return writeReply(200, {{"object", "list"}, {"data", data}});
}

LoopbackReply OpenAIService::serveAssistants(const Call& call) {
    if (call.hasLength(2)) {
        return serveAssistant(call, call.path[1]);
    }
    if (!call.hasLength(1)) {
        call.refusePath();
    }
    if (call.is("GET")) {
        return writeReply(200, writeOpenAIList(m_store.listAssistants(), call.request));
    }
    if (!call.is("POST")) {
        call.refuseMethod();
    }
    const auto body = readOpenAIBody(call.request);
    static_cast<void>(readRequiredText(body, "model"));
    checkOpenAIAssistant(body);
    checkModel(body, call.script);
    return writeReply(200, m_store.addAssistant(makeOpenAIAssistant(body)));
}

LoopbackReply OpenAIService::serveAssistant(const Call& call, const std::string& id) {
    if (call.is("DELETE")) {
        m_store.removeAssistant(id);
        return writeReply(200, writeDeletion(id, "assistant.deleted"));
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
    return writeReply(200, assistant);
}

LoopbackReply OpenAIService::serveThreads(const Call& call) {
    if (!call.hasLength(1)) {
        return serveThread(call, call.path[1]);
    }
    if (!call.is("POST")) {
        call.refuseMethod();
    }
    const auto body = readOpenAIBody(call.request);
    checkOpenAIThread(body);
    auto& thread = m_store.addThread(makeOpenAIThread(body));
    if (const auto* messages = findMember(body, "messages"); messages != nullptr) {
        for (const auto& message : *messages) {
            thread.messages.push_back(
                makeOpenAIMessage(thread, readRequiredText(message, "role"), readContentTexts(message.at("content"))));
        }
    }
    return writeReply(200, thread.object);
}

LoopbackReply OpenAIService::serveThread(const Call& call, const std::string& id) {
    if (call.hasLength(2) && call.is("DELETE")) {
        m_store.removeThread(id);
        return writeReply(200, writeDeletion(id, "thread.deleted"));
    }
    if (call.hasLength(2) && !call.is("GET")) {
        call.refuseMethod();
    }
    auto& thread = m_store.obtainThread(id);
    if (call.hasLength(2)) {
        return writeReply(200, thread.object);
    }
    if (call.path[2] == "messages") {
        return serveMessages(call, thread);
    }
    if (call.path[2] == "runs") {
        return serveRuns(call, thread);
    }
    call.refusePath();
}

LoopbackReply OpenAIService::serveMessages(const Call& call, OpenAIThread& thread) {
    if (call.hasLength(4) && call.is("GET")) {
        return writeReply(200, thread.obtainMessage(call.path[3]));
    }
    if (!call.hasLength(3)) {
        call.refusePath();
    }
    if (call.is("GET")) {
        auto messages = thread.messages;
        if (const auto* run = call.request.findQueryParam("run_id")) {
            std::erase_if(messages, [&](const auto& message) { return message.at("run_id") != *run; });
        }
        return writeReply(200, writeOpenAIList(std::move(messages), call.request));
    }
    if (!call.is("POST")) {
        call.refuseMethod();
    }
    const auto body = readOpenAIBody(call.request);
    checkOpenAIMessage(body);
    if (const auto* run = thread.findActiveRun()) {
        throw KAIRefusal{
            .status = 400,
            .message = "Can't add messages to " + call.path[1] + " while a run " + run->obtainID() + " is active."};
    }
    thread.messages.push_back(
        makeOpenAIMessage(thread, readRequiredText(body, "role"), readContentTexts(body.at("content"))));
    return writeReply(200, thread.messages.back());
}

LoopbackReply OpenAIService::serveRuns(const Call& call, OpenAIThread& thread) {
    if (call.hasLength(4) || call.hasLength(5)) {
        return serveRun(call, thread, call.path[3]);
    }
    if (!call.hasLength(3)) {
        call.refusePath();
    }
    if (call.is("POST")) {
        return createRun(call, thread);
    }
    if (!call.is("GET")) {
        call.refuseMethod();
    }
    std::vector<KAIEmulatorJson> runs;
    std::ranges::transform(thread.runs, std::back_inserter(runs), &OpenAIRun::object);
    return writeReply(200, writeOpenAIList(std::move(runs), call.request));
}

LoopbackReply OpenAIService::serveRun(const Call& call, OpenAIThread& thread, const std::string& id) {
    auto& run = thread.obtainRun(id);
    if (call.hasLength(5)) {
        if (call.path[4] != "cancel") {
            call.refusePath();
        }
        if (!call.is("POST")) {
            call.refuseMethod();
        }
        cancelRun(run);
    } else if (call.is("GET")) {
        advanceRun(thread, run);
    } else {
        call.refuseMethod();
    }
    return writeReply(200, run.object);
}

LoopbackReply OpenAIService::createRun(const Call& call, OpenAIThread& thread) {
    const auto body = readOpenAIBody(call.request);
    const auto& assistant = m_store.obtainAssistant(readRequiredText(body, "assistant_id"));
    checkOpenAIRun(body);
    if (const auto* run = thread.findActiveRun()) {
        throw KAIRefusal{.status = 400,
                         .message = "Thread " + call.path[1] + " already has an active run " + run->obtainID() + "."};
    }
    const KAIEmulatedAnswer answer = call.script.decide(describeTurn(thread, assistant));
    return deliver(answer, [&] {
        thread.runs.push_back({makeOpenAIRun(thread, assistant), answer});
        return writeReply(200, thread.runs.back().object);
    });
}

}  // namespace

std::unique_ptr<KAIEmulatedService> makeOpenAIService(const KAIEmulatorOptions& options) {
    return std::make_unique<OpenAIService>(options);
}
