#include "emulator_openai_objects.h"

#include <algorithm>
#include <array>

#include "emulator_openai_checks.h"
#include "emulator_service.h"

namespace {

constexpr std::int64_t kSecondsOfARun = 600;

std::string readID(const KAIEmulatorJson& object) {
    return object.at("id").get<std::string>();
}

KAIRefusal refuseMissing(const std::string& kind, const std::string& id) {
    return {.status = 404, .message = "No " + kind + " found with id '" + id + "'."};
}

template <typename Container, typename Projection>
auto& obtain(Container& container, const char* kind, const std::string& id, Projection projection) {
    const auto found = std::ranges::find(container, id, projection);
    if (found == container.end()) {
        throw refuseMissing(kind, id);
    }
    return *found;
}

const auto byThreadID = [](const OpenAIThread& thread) { return readID(thread.object); };
const auto byRunID = [](const OpenAIRun& run) { return run.obtainID(); };

// The step of a run that wrote this message.
KAIEmulatorJson makeStep(const OpenAIRun& run, const KAIEmulatorJson& message) {
    return {{"id", makeIdentifier("step_", 24)},
            {"object", "thread.run.step"},
            {"created_at", message.at("created_at")},
            {"run_id", run.object.at("id")},
            {"assistant_id", run.object.at("assistant_id")},
            {"thread_id", run.object.at("thread_id")},
            {"type", "message_creation"},
            {"status", "completed"},
            {"cancelled_at", nullptr},
            {"completed_at", message.at("completed_at")},
            {"expired_at", nullptr},
            {"failed_at", nullptr},
            {"last_error", nullptr},
            {"metadata", KAIEmulatorJson::object()},
            {"step_details", {{"type", "message_creation"}, {"message_creation", {{"message_id", message.at("id")}}}}},
            {"usage", run.object.at("usage")}};
}

// What a run requests from its client when it waits for a tool.
KAIEmulatorJson makeRequiredAction() {
    const KAIEmulatorJson call{{"id", makeIdentifier("call_", 24)},
                               {"type", "function"},
                               {"function", {{"name", "look_up"}, {"arguments", "{}"}}}};
    return {{"type", "submit_tool_outputs"}, {"submit_tool_outputs", {{"tool_calls", KAIEmulatorJson::array({call})}}}};
}

void addAnswer(OpenAIThread& thread, OpenAIRun& run) {
    for (const auto& choice : run.answer.choices) {
        auto message = makeOpenAIMessage(thread, "assistant", choice.parts);
        message["assistant_id"] = run.object["assistant_id"];
        message["run_id"] = run.object["id"];
        run.steps.push_back(makeStep(run, message));
        thread.messages.push_back(std::move(message));
    }
}

void addUsage(const OpenAIThread& thread, OpenAIRun& run) {
    std::size_t promptTokens = 0;
    for (const auto& message : thread.messages) {
        promptTokens += estimateTokens(message.at("content").dump());
    }
    std::size_t answerTokens = 0;
    for (const auto& choice : run.answer.choices) {
        answerTokens += estimateTokens(choice.join());
    }
    run.object["usage"] = {{"prompt_tokens", promptTokens},
                           {"completion_tokens", answerTokens},
                           {"total_tokens", promptTokens + answerTokens}};
}

void enterState(OpenAIThread& thread, OpenAIRun& run, const std::string& status) {
    const std::int64_t now = obtainNow();
    run.object["status"] = status;
    if (status == "in_progress") {
        run.object["started_at"] = now;
    } else if (status == "completed") {
        run.object["completed_at"] = now;
        run.object["expires_at"] = nullptr;
        addUsage(thread, run);
        addAnswer(thread, run);
    } else if (status == "failed") {
        run.object["failed_at"] = now;
        run.object["last_error"] = {{"code", run.answer.runError.first}, {"message", run.answer.runError.second}};
    } else if (status == "expired") {
        run.object["expires_at"] = now;
    } else if (status == "incomplete") {
        run.object["incomplete_details"] = {{"reason", "max_completion_tokens"}};
    } else if (status == "cancelled") {
        run.object["cancelled_at"] = now;
    } else if (status == "requires_action") {
        run.object["required_action"] = makeRequiredAction();
    }
}

}  // namespace

std::string OpenAIRun::obtainID() const {
    return readID(object);
}

const KAIEmulatorJson& OpenAIRun::obtainStep(const std::string& id) const {
    return obtain(steps, "step", id, readID);
}

bool OpenAIRun::isActive() const {
    static constexpr std::array<std::string_view, 5> kEnded{"completed", "failed", "expired", "incomplete",
                                                            "cancelled"};
    return std::ranges::find(kEnded, object.at("status").get<std::string>()) == kEnded.end();
}

const OpenAIRun* OpenAIThread::findActiveRun() const {
    const auto found = std::ranges::find_if(runs, &OpenAIRun::isActive);
    return found == runs.end() ? nullptr : &*found;
}

OpenAIRun& OpenAIThread::obtainRun(const std::string& id) {
    return obtain(runs, "run", id, byRunID);
}

KAIEmulatorJson& OpenAIThread::obtainMessage(const std::string& id) {
    return obtain(messages, "message", id, readID);
}

KAIEmulatorJson& OpenAIThread::addMessage(const KAIEmulatorJson& body) {
    auto message = makeOpenAIMessage(*this, body.at("role").get<std::string>(), readContentTexts(body.at("content")));
    for (const auto* name : {"attachments", "metadata"}) {
        if (const auto* member = findMember(body, name); member != nullptr && !member->is_null()) {
            message[name] = *member;
        }
    }
    return messages.emplace_back(std::move(message));
}

KAIEmulatorJson& OpenAIStore::addAssistant(KAIEmulatorJson object) {
    return m_assistants.emplace_back(std::move(object));
}

OpenAIThread& OpenAIStore::addThread(KAIEmulatorJson object) {
    return m_threads.emplace_back(OpenAIThread{std::move(object), {}, {}});
}

KAIEmulatorJson& OpenAIStore::obtainAssistant(const std::string& id) {
    return obtain(m_assistants, "assistant", id, readID);
}

OpenAIThread& OpenAIStore::obtainThread(const std::string& id) {
    return obtain(m_threads, "thread", id, byThreadID);
}

void OpenAIStore::removeAssistant(const std::string& id) {
    if (std::erase_if(m_assistants, [&](const auto& object) { return readID(object) == id; }) == 0) {
        throw refuseMissing("assistant", id);
    }
}

void OpenAIStore::removeThread(const std::string& id) {
    if (std::erase_if(m_threads, [&](const auto& thread) { return byThreadID(thread) == id; }) == 0) {
        throw refuseMissing("thread", id);
    }
}

std::vector<KAIEmulatorJson> OpenAIStore::listAssistants() const {
    return {m_assistants.begin(), m_assistants.end()};
}

std::vector<std::string> OpenAIStore::listIdentifiers() const {
    std::vector<std::string> identifiers;
    std::ranges::transform(m_assistants, std::back_inserter(identifiers), readID);
    std::ranges::transform(m_threads, std::back_inserter(identifiers), byThreadID);
    return identifiers;
}

KAIEmulatorJson makeOpenAIAssistant(const KAIEmulatorJson& body) {
    KAIEmulatorJson assistant{{"id", makeIdentifier("asst_", 24)},
                              {"object", "assistant"},
                              {"created_at", obtainNow()},
                              {"name", nullptr},
                              {"description", nullptr},
                              {"model", nullptr},
                              {"instructions", nullptr},
                              {"tools", KAIEmulatorJson::array()},
                              {"top_p", 1.0},
                              {"temperature", 1.0},
                              {"tool_resources", KAIEmulatorJson::object()},
                              {"metadata", KAIEmulatorJson::object()},
                              {"response_format", "auto"}};
    assistant.update(body);
    return assistant;
}

KAIEmulatorJson makeOpenAIThread(const KAIEmulatorJson& body) {
    KAIEmulatorJson thread{{"id", makeIdentifier("thread_", 24)},
                           {"object", "thread"},
                           {"created_at", obtainNow()},
                           {"metadata", KAIEmulatorJson::object()},
                           {"tool_resources", KAIEmulatorJson::object()}};
    for (const auto* name : {"metadata", "tool_resources"}) {
        if (const auto* member = findMember(body, name)) {
            thread[name] = *member;
        }
    }
    return thread;
}

KAIEmulatorJson makeOpenAIMessage(const OpenAIThread& thread, const std::string& role,
                                  const std::vector<std::string>& texts) {
    auto content = KAIEmulatorJson::array();
    for (const auto& text : texts) {
        content.push_back({{"type", "text"}, {"text", {{"value", text}, {"annotations", KAIEmulatorJson::array()}}}});
    }
    const std::int64_t now = obtainNow();
    return {{"id", makeIdentifier("msg_", 24)},
            {"object", "thread.message"},
            {"created_at", now},
            {"assistant_id", nullptr},
            {"thread_id", thread.object.at("id")},
            {"run_id", nullptr},
            {"status", "completed"},
            {"completed_at", now},
            {"incomplete_at", nullptr},
            {"incomplete_details", nullptr},
            {"role", role},
            {"content", content},
            {"attachments", KAIEmulatorJson::array()},
            {"metadata", KAIEmulatorJson::object()}};
}

KAIEmulatorJson makeOpenAIRun(const OpenAIThread& thread, const KAIEmulatorJson& assistant,
                              const KAIEmulatorJson& body) {
    const std::int64_t now = obtainNow();
    KAIEmulatorJson run{{"id", makeIdentifier("run_", 24)},
                        {"object", "thread.run"},
                        {"created_at", now},
                        {"assistant_id", assistant.at("id")},
                        {"thread_id", thread.object.at("id")},
                        {"status", "queued"},
                        {"started_at", nullptr},
                        {"expires_at", now + kSecondsOfARun},
                        {"cancelled_at", nullptr},
                        {"failed_at", nullptr},
                        {"completed_at", nullptr},
                        {"required_action", nullptr},
                        {"last_error", nullptr},
                        {"model", assistant.at("model")},
                        {"instructions", assistant.at("instructions")},
                        {"tools", assistant.at("tools")},
                        {"metadata", KAIEmulatorJson::object()},
                        {"temperature", assistant.at("temperature")},
                        {"top_p", assistant.at("top_p")},
                        {"max_completion_tokens", nullptr},
                        {"max_prompt_tokens", nullptr},
                        {"truncation_strategy", {{"type", "auto"}, {"last_messages", nullptr}}},
                        {"incomplete_details", nullptr},
                        {"usage", nullptr},
                        {"response_format", "auto"},
                        {"tool_choice", "auto"},
                        {"parallel_tool_calls", true}};
    for (auto& [name, value] : run.items()) {
        if (const auto* member = findMember(body, name.c_str()); member != nullptr && !member->is_null()) {
            value = *member;
        }
    }
    return run;
}

KAIEmulatedTurn describeTurn(const OpenAIThread& thread, const KAIEmulatorJson& run) {
    KAIEmulatedTurn turn{.model = run.at("model").get<std::string>()};
    if (const auto& instructions = run.at("instructions"); instructions.is_string()) {
        turn.instructions = instructions.get<std::string>();
    }
    for (const auto& message : thread.messages) {
        std::string text;
        for (const auto& item : message.at("content")) {
            text += item.at("text").at("value").get<std::string>();
        }
        turn.messages.push_back({message.at("role").get<std::string>(), text});
    }
    return turn;
}

void advanceRun(OpenAIThread& thread, OpenAIRun& run) {
    static const std::vector<std::string> usualStates{"in_progress", "completed"};
    const auto& states = run.answer.runStates.empty() ? usualStates : run.answer.runStates;
    const bool isWaiting = run.object.at("status") == "requires_action";
    if (!run.isActive() || isWaiting || run.polls >= states.size()) {
        return;
    }
    enterState(thread, run, states[run.polls++]);
}

void cancelRun(OpenAIRun& run) {
    if (!run.isActive()) {
        throw KAIRefusal{
            .status = 400,
            .message = "Cannot cancel run with status '" + run.object.at("status").get<std::string>() + "'."};
    }
    run.object["status"] = "cancelling";
    run.answer.runStates = {"cancelled"};
    run.polls = 0;
}

void submitToolOutputs(OpenAIRun& run) {
    const auto status = run.object.at("status").get<std::string>();
    if (status != "requires_action") {
        throw KAIRefusal{.status = 400, .message = "Runs in status \"" + status + "\" do not accept tool outputs."};
    }
    run.object["status"] = "queued";
    run.object["required_action"] = nullptr;
}
