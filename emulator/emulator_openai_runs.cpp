// Runs of the OpenAI Assistants protocol and their steps.

#include <algorithm>
#include <iterator>

#include "emulator_openai.h"
#include "emulator_openai_checks.h"

LoopbackReply OpenAIService::serveRuns(const OpenAICall& call, OpenAIThread& thread) {
    if (!call.hasLength(3)) {
        return serveRun(call, thread, thread.obtainRun(call.path[3]));
    }
    if (call.is("POST")) {
        return createRun(call, thread, readOpenAIBody(call.request));
    }
    call.demand("GET");
    std::vector<KAIEmulatorJson> runs;
    std::ranges::transform(thread.runs, std::back_inserter(runs), &OpenAIRun::object);
    return writeOpenAIReply(200, writeOpenAIList(std::move(runs), call.request));
}

LoopbackReply OpenAIService::serveRun(const OpenAICall& call, OpenAIThread& thread, OpenAIRun& run) {
    const std::string below = call.hasLength(4) ? "" : call.path[4];
    if (below == "steps") {
        return serveSteps(call, run);
    }
    if (below == "cancel" && call.hasLength(5)) {
        call.demand("POST");
        cancelRun(run);
    } else if (below == "submit_tool_outputs" && call.hasLength(5)) {
        call.demand("POST");
        const auto body = readOpenAIBody(call.request);
        checkOpenAIToolOutputs(body);
        submitToolOutputs(run);
    } else if (!call.hasLength(4)) {
        call.refusePath();
    } else if (call.is("POST")) {
        const auto body = readOpenAIBody(call.request);
        checkOpenAIMetadata(body);
        run.object.update(body);
    } else {
        call.demand("GET");
        advanceRun(thread, run);
    }
    return writeOpenAIReply(200, run.object);
}

LoopbackReply OpenAIService::serveSteps(const OpenAICall& call, const OpenAIRun& run) {
    call.demand("GET");
    if (call.hasLength(5)) {
        return writeOpenAIReply(200, writeOpenAIList(run.steps, call.request));
    }
    if (!call.hasLength(6)) {
        call.refusePath();
    }
    return writeOpenAIReply(200, run.obtainStep(call.path[5]));
}

LoopbackReply OpenAIService::createRun(const OpenAICall& call, OpenAIThread& thread, const KAIEmulatorJson& body) {
    const auto& assistant = m_store.obtainAssistant(readRequiredText(body, "assistant_id"));
    checkOpenAIRun(body);
    checkModel(body, call.script);
    if (const auto* run = thread.findActiveRun()) {
        throw KAIRefusal{.status = 400,
                         .message = "Thread " + thread.object.at("id").get<std::string>() +
                                    " already has an active run " + run->obtainID() + "."};
    }
    if (const auto* messages = findMember(body, "additional_messages"); messages != nullptr && !messages->is_null()) {
        std::ranges::for_each(*messages, [&](const auto& message) { thread.addMessage(message); });
    }
    const KAIEmulatorJson run = makeOpenAIRun(thread, assistant, body);
    const KAIEmulatedAnswer answer = call.script.decide(describeTurn(thread, run));
    return deliver(answer, [&] {
        thread.runs.push_back({run, answer});
        return writeOpenAIReply(200, thread.runs.back().object);
    });
}

LoopbackReply OpenAIService::createThreadAndRun(const OpenAICall& call) {
    call.demand("POST");
    KAIEmulatorJson body = readOpenAIBody(call.request);
    const auto* thread = findMember(body, "thread");
    const KAIEmulatorJson threadBody = thread == nullptr ? KAIEmulatorJson::object() : *thread;
    body.erase("thread");
    static_cast<void>(m_store.obtainAssistant(readRequiredText(body, "assistant_id")));
    checkOpenAIRun(body);
    return createRun(call, createThread(threadBody), body);
}
