#include "request_rows.h"

namespace {

using enum HostStep;
using enum FailureReading;
using enum KAIAssistantType;

constexpr RequestRow kRows[] = {
    {"deepseek: models", DEEPSEEK, ListModels, "GET", "/models", MessageOrBody, ": g/models"},
    {"deepseek: turn", DEEPSEEK, Say, "POST", "/chat/completions", MessageOrBody, ": p/chat/completions"},
    {"deepseek: streamed turn", DEEPSEEK, SayStreamed, "POST", "/chat/completions", MessageOrBody,
     ": p/chat/completions"},
    {"google: models", GOOGLE, ListModels, "GET", "/v1beta/models", Message, ": g/v1beta/models"},
    {"google: turn", GOOGLE, Say, "POST", "/v1beta/models/m:generateContent", Message,
     ": p/v1beta/models/m:generateContent"},
    {"google: streamed turn", GOOGLE, SayStreamed, "POST", "/v1beta/models/m:streamGenerateContent", Message,
     ": p/v1beta/models/m:generateContent"},
    {"ollama: models", OLLAMA, ListModels, "GET", "/api/tags", Nothing, ": g/api/tags"},
    {"ollama: turn", OLLAMA, Say, "POST", "/api/chat", MessageOrBody, ": g/api/chat"},
    {"ollama: streamed turn", OLLAMA, SayStreamed, "POST", "/api/chat", MessageOrBody, ": g/api/chat"},
    {"openai: models", OPENAI, ListModels, "GET", "/v1/models", MessageOrBody, ": g/v1/models"},
    {"openai: create the assistant", OPENAI, SetProperties, "POST", "/v1/assistants", MessageOrBody,
     ": p/v1/assistants"},
    {"openai: modify the assistant", OPENAI, ChangeProperties, "POST", "/v1/assistants/asst_1", MessageOrBody,
     ": p/v1/assistants/id"},
    {"openai: create a thread", OPENAI, OpenSession, "POST", "/v1/threads", MessageOrBody, ": p/v1/threads"},
    {"openai: post a message", OPENAI, Say, "POST", "/v1/threads/thread_1/messages", MessageOrBody,
     ": p/v1/threads/id/messages", true},
    {"openai: create a run", OPENAI, Say, "POST", "/v1/threads/thread_1/runs", MessageOrBody, ": p/v1/threads/id/runs",
     true},
    {"openai: poll a run", OPENAI, Say, "GET", "/v1/threads/thread_1/runs/run_1", MessageOrBody,
     ": p/v1/threads/id/runs/id", true},
    {"openai: fetch the answer", OPENAI, Say, "GET", "/v1/threads/thread_1/messages", MessageOrBody,
     ": g/v1/threads/id/messages"},
    {"openai: delete a thread", OPENAI, CloseSession, "DELETE", "/v1/threads/thread_1", MessageOrBody, ""},
    {"openai: delete the assistant", OPENAI, CloseSession, "DELETE", "/v1/assistants/asst_1", Ignored, ""},
};

}  // namespace

std::span<const RequestRow> obtainRequestRows() {
    return kRows;
}

LoopbackTLS obtainTLSOf(KAIAssistantType type) {
    return type == OLLAMA ? LoopbackTLS::Off : LoopbackTLS::Valid;
}
