#include "service_shapes.h"

namespace {

/// A chunk of a streamed chat completion: the members beside "choices", and the one choice.
std::string writeChunk(const std::string& head, const std::string& choice) {
    return "data: {" + head + ",\"object\":\"chat.completion.chunk\",\"choices\":[" + choice + "]}\n\n";
}

/// A stream as most services send it. `head`: members that the service adds. `usage`: an event before the end.
std::string writeStream(const std::string& head, const std::string& usage = "") {
    return writeChunk(head, R"({"index":0,"delta":{"role":"assistant","content":""},"finish_reason":null})") +
           writeChunk(head, R"({"index":0,"delta":{"content":"Count them: "},"finish_reason":null})") +
           writeChunk(head, R"({"index":0,"delta":{"content":"3."},"finish_reason":null})") +
           writeChunk(head, R"({"index":0,"delta":{},"finish_reason":"stop"})") + usage + "data: [DONE]\n\n";
}

const std::string kStreamedUsage =
    R"(data: {"id":"c-1","object":"chat.completion.chunk","choices":[],"usage":{"prompt_tokens":9,"total_tokens":14}})"
    "\n\n";

ServiceShapes describeDeepSeek() {
    return {
        .name = "DeepSeek",
        .type = KAIAssistantType::DEEPSEEK,
        .path = "",
        .isPlain = false,
        .models = R"({"object":"list","data":[{"id":"deepseek-v4-flash","object":"model","owned_by":"deepseek"},)"
                  R"({"id":"deepseek-v4-pro","object":"model","owned_by":"deepseek"}]})",
        .modelNames = {"deepseek-v4-flash", "deepseek-v4-pro"},
        .modelsError = "",
        .reply =
            "\n\n"
            R"({"id":"c-1","object":"chat.completion","created":1795219200,"model":"deepseek-v4-flash","choices":[)"
            R"({"index":0,"message":{"role":"assistant","content":"Count them: 3.","reasoning_content":"Three rows."},)"
            R"("logprobs":null,"finish_reason":"stop"}],"usage":{"prompt_tokens":9,"completion_tokens":5,)"
            R"("total_tokens":14,"prompt_cache_hit_tokens":0,"prompt_cache_miss_tokens":9}})",
        .stream = ": keep-alive\n\n" +
                  writeChunk(R"("id":"c-1","created":1795219200)",
                             R"({"index":0,"delta":{"content":null,"reasoning_content":"Three rows."},)"
                             R"("finish_reason":null})") +
                  writeStream(R"("id":"c-1","created":1795219200)"),
        .errorStatus = 402,
        .error = R"({"error":{"message":"Insufficient Balance","type":"unknown_error","param":null,)"
                 R"("code":"invalid_request_error"}})",
        .errorText = "Insufficient Balance"};
}

ServiceShapes describeGemini() {
    return {
        .name = "Gemini",
        .type = KAIAssistantType::GOOGLE,
        .path = "",
        .isPlain = false,
        .models =
            R"({"models":[{"name":"models/gemini-3.5-flash","version":"001","displayName":"Gemini 3.5 Flash",)"
            R"("inputTokenLimit":1048576,"outputTokenLimit":65536,)"
            R"("supportedGenerationMethods":["generateContent","countTokens"]},)"
            R"({"name":"models/gemini-embedding-2","version":"001","supportedGenerationMethods":["embedContent"]}]})",
        .modelNames = {"gemini-3.5-flash"},
        .modelsError = "",
        .reply =
            R"({"candidates":[{"content":{"parts":[{"text":"Count them: 3.","thoughtSignature":"c2ln"}],)"
            R"("role":"model"},"finishReason":"STOP","index":0}],"usageMetadata":{"promptTokenCount":9,)"
            R"("candidatesTokenCount":5,"totalTokenCount":14},"modelVersion":"gemini-3.5-flash","responseId":"r-1"})",
        .stream = R"(data: {"candidates":[{"content":{"parts":[{"text":"Count them: "}],"role":"model"},"index":0}],)"
                  R"("usageMetadata":{"promptTokenCount":9},"modelVersion":"gemini-3.5-flash","responseId":"r-1"})"
                  "\r\n\r\n"
                  R"(data: {"candidates":[{"content":{"parts":[{"text":"3."}],"role":"model"},"finishReason":"STOP",)"
                  R"("index":0}],"usageMetadata":{"promptTokenCount":9,"candidatesTokenCount":5,"totalTokenCount":14}})"
                  "\r\n\r\n",
        .errorStatus = 429,
        .error = R"({"error":{"code":429,"message":"Quota exceeded.","status":"RESOURCE_EXHAUSTED"}})",
        .errorText = "Quota exceeded."};
}

ServiceShapes describeOllama() {
    return {.name = "Ollama",
            .type = KAIAssistantType::OLLAMA,
            .path = "",
            .isPlain = true,
            .models = R"({"models":[{"name":"llama3.2:latest","model":"llama3.2:latest",)"
                      R"("modified_at":"2026-11-01T09:14:03.25+01:00","size":2019393189,"digest":"a80c","details":)"
                      R"({"format":"gguf","family":"llama","parameter_size":"3.2B","quantization_level":"Q4_K_M"}}]})",
            .modelNames = {"llama3.2:latest"},
            .modelsError = "",
            .reply = R"({"model":"llama3.2","created_at":"2026-11-21T10:00:00.1Z","message":{"role":"assistant",)"
                     R"("content":"Count them: 3."},"done":true,"done_reason":"stop","total_duration":174560334,)"
                     R"("load_duration":101397084,"prompt_eval_count":9,"eval_count":5})",
            .stream = R"({"model":"llama3.2","created_at":"2026-11-21T10:00:00.1Z","message":{"role":"assistant",)"
                      R"("content":"Count them: "},"done":false})"
                      "\n"
                      R"({"model":"llama3.2","created_at":"2026-11-21T10:00:00.2Z","message":{"role":"assistant",)"
                      R"("content":"3."},"done":false})"
                      "\n"
                      R"({"model":"llama3.2","created_at":"2026-11-21T10:00:00.3Z","message":{"role":"assistant",)"
                      R"("content":""},"done":true,"done_reason":"stop","total_duration":174560334,"eval_count":5})"
                      "\n",
            .errorStatus = 404,
            .error = R"({"error":"model 'llama9' not found"})",
            .errorText = R"({"error":"model 'llama9' not found"})"};
}

/// Another service or server that speaks chat completions: what it has of its own.
struct Compatible {
    std::string name;
    std::string path;
    bool isPlain;
    std::string models;
    std::vector<std::string> modelNames;
    std::string modelsError;
    std::string replyMembers;  ///< beside "choices"
    std::string stream;
    int errorStatus;
    std::string error;
    std::string errorText;
};

ServiceShapes describe(const Compatible& service) {
    return {.name = service.name,
            .type = KAIAssistantType::DEEPSEEK,
            .path = service.path,
            .isPlain = service.isPlain,
            .models = service.models,
            .modelNames = service.modelNames,
            .modelsError = service.modelsError,
            .reply = "{" + service.replyMembers +
                     R"(,"object":"chat.completion","choices":[{"index":0,"message":{"role":"assistant",)"
                     R"("content":"Count them: 3."},"finish_reason":"stop"}]})",
            .stream = service.stream,
            .errorStatus = service.errorStatus,
            .error = service.error,
            .errorText = service.errorText};
}

const Compatible kCompatible[] = {
    {"OpenAI",
     "/v1",
     false,
     R"({"object":"list","data":[{"id":"m-1","object":"model","created":1715367049,"owned_by":"system"}]})",
     {"m-1"},
     "",
     R"("id":"chatcmpl-1","created":1795219200,"model":"m-1","usage":{"total_tokens":14},"service_tier":"default")",
     writeStream(R"("id":"chatcmpl-1","service_tier":"default","obfuscation":"x8")", kStreamedUsage),
     401,
     R"({"error":{"message":"Incorrect API key provided.","type":"invalid_request_error","param":null,)"
     R"("code":"invalid_api_key"}})",
     "Incorrect API key provided."},
    {"Azure",
     "/openai/v1",
     false,
     R"({"object":"list","data":[{"id":"m-1","object":"model","created_at":1715367049,"status":"succeeded"}]})",
     {"m-1"},
     "",
     R"("id":"chatcmpl-1","model":"m-1","prompt_filter_results":[{"prompt_index":0,"content_filter_results":{}}])",
     // The first event filters the prompt and has no choice.
     R"(data: {"id":"","object":"","choices":[],"prompt_filter_results":[{"prompt_index":0}]})"
     "\n\n" +
         writeStream(R"("id":"chatcmpl-1","model":"m-1")"),
     404,
     R"({"error":{"code":"DeploymentNotFound","message":"The API deployment for this resource does not exist."}})",
     "The API deployment for this resource does not exist."},
    {"Groq",
     "/openai/v1",
     false,
     R"({"object":"list","data":[{"id":"m-1","object":"model","owned_by":"x","active":true,"context_window":131072}]})",
     {"m-1"},
     "",
     R"("id":"chatcmpl-1","model":"m-1","x_groq":{"id":"req_1"})",
     writeStream(R"("id":"chatcmpl-1","x_groq":{"id":"req_1"})"),
     429,
     R"({"error":{"message":"Rate limit reached for model `m-1`","type":"tokens","code":"rate_limit_exceeded"}})",
     "Rate limit reached for model `m-1`"},
    {"Mistral",
     "/v1",
     false,
     R"({"object":"list","data":[{"id":"m-1","object":"model","capabilities":{"completion_chat":true}}]})",
     {"m-1"},
     "",
     R"("id":"c-1","model":"m-1","usage":{"total_tokens":14})",
     writeStream(R"("id":"c-1","model":"m-1")"),
     401,
     R"({"detail":"Unauthorized"})",
     R"({"detail":"Unauthorized"})"},
    // No "object" in an entry: the list is empty, though every name works.
    {"OpenRouter",
     "/api/v1",
     false,
     R"({"data":[{"id":"x/m-1","canonical_slug":"x/m-1","name":"X: M 1","created":1715367049,"pricing":{}}]})",
     {},
     "",
     R"("id":"gen-1","provider":"X","model":"x/m-1")",
     ": OPENROUTER PROCESSING\n\n: OPENROUTER PROCESSING\n\n" +
         writeStream(R"("id":"gen-1","provider":"X")", kStreamedUsage),
     402,
     R"({"error":{"code":402,"message":"Insufficient credits."},"user_id":"u"})",
     "Insufficient credits."},
    // The list is a bare array.
    {"Together",
     "/v1",
     false,
     R"([{"id":"x/m-1","object":"model","type":"chat","display_name":"M 1"}])",
     {},
     "Unsupported data format: g/models",
     R"("id":"c-1","model":"x/m-1","prompt":[])",
     writeStream(R"("id":"c-1","model":"x/m-1")"),
     404,
     R"({"id":"c-1","error":{"message":"Unable to access model x/m-9.","type":"invalid_request_error"}})",
     "Unable to access model x/m-9."},
    {"VLLM",
     "/v1",
     true,
     R"({"object":"list","data":[{"id":"x/m-1","object":"model","owned_by":"vllm","max_model_len":4096}]})",
     {"x/m-1"},
     "",
     R"("id":"chatcmpl-1","prompt_logprobs":null,"kv_transfer_params":null)",
     writeStream(R"("id":"chatcmpl-1","created":1795219200)"),
     400,
     R"({"object":"error","message":"The prompt is too long.","type":"BadRequestError","param":null,"code":400})",
     R"({"object":"error","message":"The prompt is too long.","type":"BadRequestError","param":null,"code":400})"},
    {"LlamaCpp",
     "/v1",
     true,
     R"({"models":[],"object":"list","data":[{"id":"m-1.gguf","object":"model","owned_by":"llamacpp","meta":{}}]})",
     {"m-1.gguf"},
     "",
     R"("id":"chatcmpl-1","timings":{"prompt_n":9})",
     writeStream(R"("id":"chatcmpl-1","system_fingerprint":"b1-x")"),
     503,
     R"({"error":{"code":503,"message":"Loading model","type":"unavailable_error"}})",
     "Loading model"},
    {"LMStudio",
     "/v1",
     true,
     R"({"data":[{"id":"x/m-1","object":"model","owned_by":"organization_owner"}],"object":"list"})",
     {"x/m-1"},
     "",
     R"("id":"chatcmpl-1","stats":{})",
     writeStream(R"("id":"chatcmpl-1","system_fingerprint":"x/m-1")"),
     404,
     R"({"error":{"message":"No models loaded.","type":"invalid_request_error","param":"model","code":null}})",
     "No models loaded."},
    {"LiteLLM",
     "",
     true,
     R"({"data":[{"id":"m-1","object":"model","created":1677610602,"owned_by":"openai"}],"object":"list"})",
     {"m-1"},
     "",
     R"("id":"chatcmpl-1","model":"m-1")",
     writeStream(R"("id":"chatcmpl-1","created":1795219200)"),
     401,
     R"({"error":{"message":"Authentication Error, no key.","type":"auth_error","param":"None","code":"401"}})",
     "Authentication Error, no key."},
};

ServiceShapes describeOllamaCloud() {
    ServiceShapes shapes = describeOllama();
    shapes.name = "OllamaCloud";
    shapes.type = KAIAssistantType::DEEPSEEK;
    shapes.path = "/v1";
    shapes.isPlain = false;
    shapes.models =
        R"({"object":"list","data":[{"id":"gpt-oss:120b","object":"model","created":1754352000,"owned_by":"ollama"}]})";
    shapes.modelNames = {"gpt-oss:120b"};
    shapes.reply =
        R"({"id":"chatcmpl-1","object":"chat.completion","model":"gpt-oss:120b","choices":[{"index":0,"message":)"
        R"({"role":"assistant","content":"Count them: 3.","reasoning":"Three."},"finish_reason":"stop"}]})";
    shapes.stream = writeStream(R"("id":"chatcmpl-1","system_fingerprint":"fp_ollama")");
    shapes.errorStatus = 401;
    shapes.error = R"({"error":{"message":"unauthorized","type":"api_error","param":null,"code":null}})";
    shapes.errorText = "unauthorized";
    return shapes;
}

std::vector<ServiceShapes> describeAll() {
    std::vector<ServiceShapes> all{describeDeepSeek(), describeGemini(), describeOllama(), describeOllamaCloud()};
    for (const Compatible& service : kCompatible) {
        all.push_back(describe(service));
    }
    return all;
}

}  // namespace

const std::vector<ServiceShapes>& listServiceShapes() {
    static const std::vector<ServiceShapes> all = describeAll();
    return all;
}
