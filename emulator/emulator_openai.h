#ifndef KAI_EMULATOR_OPENAI_H
#define KAI_EMULATOR_OPENAI_H

#include <string>
#include <string_view>
#include <vector>

#include "emulator_openai_objects.h"
#include "emulator_service.h"

/// A request with its path split into segments.
struct OpenAICall {
    const LoopbackRequest& request;
    KAIEmulatorScript& script;
    std::vector<std::string> path;  ///< the segments after "/v1", decoded

    [[nodiscard]] bool is(std::string_view method) const { return request.method == method; }
    [[nodiscard]] bool hasLength(std::size_t length) const { return path.size() == length; }
    /// Throws KAIRefusal for every other method.
    void demand(std::string_view method) const;
    [[noreturn]] void refuseMethod() const;
    [[noreturn]] void refusePath() const;
};

/// The service: models, chat completions, and the Assistants protocol with what clients keep on it.
class OpenAIService : public KAIEmulatedService {
public:
    explicit OpenAIService(const KAIEmulatorOptions& options) : m_key(options.key) {}

    std::vector<std::string> listLeft() const override { return m_store.listIdentifiers(); }

protected:
    LoopbackReply serve(const LoopbackRequest& request, KAIEmulatorScript& script) override;
    LoopbackReply writeRefusal(const KAIRefusal& refusal) const override;

private:
    using Call = OpenAICall;

    void checkKey(const LoopbackRequest& request) const;
    static void checkBetaHeader(const LoopbackRequest& request);
    static void checkModel(const KAIEmulatorJson& body, const KAIEmulatorScript& script);

    static LoopbackReply serveModels(const Call& call);
    LoopbackReply serveCompletions(const Call& call) const;
    LoopbackReply serveAssistants(const Call& call);
    LoopbackReply serveAssistant(const Call& call, const std::string& id);
    LoopbackReply serveThreads(const Call& call);
    LoopbackReply serveThread(const Call& call, const std::string& id);
    OpenAIThread& createThread(const KAIEmulatorJson& body);
    static LoopbackReply serveMessages(const Call& call, OpenAIThread& thread);
    static LoopbackReply serveMessage(const Call& call, OpenAIThread& thread, const std::string& id);

    // Defined in emulator_openai_runs.cpp.
    LoopbackReply serveRuns(const Call& call, OpenAIThread& thread);
    static LoopbackReply serveRun(const Call& call, OpenAIThread& thread, OpenAIRun& run);
    static LoopbackReply serveSteps(const Call& call, const OpenAIRun& run);
    LoopbackReply createRun(const Call& call, OpenAIThread& thread, const KAIEmulatorJson& body);
    LoopbackReply createThreadAndRun(const Call& call);

    std::string m_key;
    OpenAIStore m_store;
};

[[nodiscard]] LoopbackReply writeOpenAIReply(int status, const KAIEmulatorJson& body);

#endif
