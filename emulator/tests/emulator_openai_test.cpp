#include <gmock/gmock.h>

#include "emulator_client.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class OpenAIService : public testing::Test {
protected:
    OpenAIService() { client.addHeader("OpenAI-Beta: assistants=v2"); }

    std::string create(const std::string& path, const KAIEmulatorJson& body) {
        const auto response = client.post(path, body);
        EXPECT_EQ(response.status, 200) << response.body;
        return EmulatorClient::parse(response).at("id").get<std::string>();
    }
    std::string createAssistant() {
        return create("/v1/assistants", {{"model", "gpt-4o"}, {"instructions", "Be brief."}});
    }
    std::string createThread() { return create("/v1/threads", KAIEmulatorJson::object()); }
    std::string createMessage(const std::string& thread, const std::string& text) {
        return create("/v1/threads/" + thread + "/messages", {{"role", "user"}, {"content", text}});
    }
    std::string createRun(const std::string& thread, const std::string& assistant) {
        return create("/v1/threads/" + thread + "/runs", {{"assistant_id", assistant}});
    }
    KAIEmulatorJson poll(const std::string& thread, const std::string& run) {
        return EmulatorClient::parse(client.get("/v1/threads/" + thread + "/runs/" + run));
    }
    std::vector<std::string> pollStates(const std::string& thread, const std::string& run, int count) {
        std::vector<std::string> states;
        for (int i = 0; i < count; ++i) {
            states.push_back(poll(thread, run).at("status").get<std::string>());
        }
        return states;
    }
    KAIEmulatorJson list(const std::string& path) { return EmulatorClient::parse(client.get(path)).at("data"); }
    std::vector<std::string> listTexts(const std::string& path) {
        std::vector<std::string> texts;
        for (const auto& message : list(path)) {
            for (const auto& item : message.at("content")) {
                texts.push_back(item.at("text").at("value").get<std::string>());
            }
        }
        return texts;
    }
    void expectRefusal(const PlainResponse& response, int status, const std::string& message) {
        EXPECT_EQ(response.status, status) << response.body;
        EXPECT_THAT(EmulatorClient::parse(response).at("error").at("message").get<std::string>(), HasSubstr(message));
    }

    KAIEmulator emulator{{.provider = "openai"}};
    EmulatorClient client{emulator};
};

}  // namespace

TEST_F(OpenAIService, ListsItsModels) {
    const auto models = list("/v1/models");
    ASSERT_EQ(models.size(), 3U);
    EXPECT_EQ(models[0].at("id"), "gpt-4o-mini");
    EXPECT_EQ(models[0].at("object"), "model");
    EXPECT_EQ(models[0].at("created"), 1721172741);
    EXPECT_EQ(EmulatorClient(emulator).get("/v1/models").status, 200) << "needs no beta header";
}

TEST_F(OpenAIService, KeepsAnAssistantAndChangesIt) {
    const auto id = createAssistant();
    EXPECT_THAT(id, testing::StartsWith("asst_"));
    auto assistant = EmulatorClient::parse(client.get("/v1/assistants/" + id));
    EXPECT_EQ(assistant.at("object"), "assistant");
    EXPECT_EQ(assistant.at("name"), nullptr);
    EXPECT_EQ(assistant.at("temperature"), 1.0);
    EXPECT_EQ(assistant.at("instructions"), "Be brief.");
    EXPECT_EQ(client.post("/v1/assistants/" + id, KAIEmulatorJson{{"temperature", 0.5}}).status, 200);
    assistant = EmulatorClient::parse(client.get("/v1/assistants/" + id));
    EXPECT_EQ(assistant.at("temperature"), 0.5);
    EXPECT_EQ(assistant.at("model"), "gpt-4o");
    const auto deleted = EmulatorClient::parse(client.remove("/v1/assistants/" + id));
    EXPECT_EQ(deleted, (KAIEmulatorJson{{"id", id}, {"object", "assistant.deleted"}, {"deleted", true}}));
    expectRefusal(client.remove("/v1/assistants/" + id), 404, "No assistant found with id '" + id + "'.");
    expectRefusal(client.get("/v1/assistants/" + id), 404, "No assistant found");
    expectRefusal(client.post("/v1/assistants/" + id, KAIEmulatorJson::object()), 404, "No assistant found");
}

TEST_F(OpenAIService, AnswersAMessageByARun) {
    KAIEmulatedTurn seen;
    emulator.answerWith([&](const KAIEmulatedTurn& turn) {
        seen = turn;
        return KAIEmulatedAnswer::say("Answer " + std::to_string(turn.number));
    });
    const auto assistant = createAssistant();
    const auto thread = createThread();
    createMessage(thread, "first");
    const auto first = createRun(thread, assistant);
    EXPECT_THAT(pollStates(thread, first, 3), ElementsAre("in_progress", "completed", "completed"));
    createMessage(thread, "second");
    const auto second = createRun(thread, assistant);
    EXPECT_THAT(pollStates(thread, second, 2), ElementsAre("in_progress", "completed"));
    const auto path = "/v1/threads/" + thread + "/messages";
    EXPECT_THAT(listTexts(path + "?run_id=" + second), ElementsAre("Answer 2"));
    EXPECT_THAT(listTexts(path), ElementsAre("Answer 2", "second", "Answer 1", "first"));
    EXPECT_THAT(listTexts(path + "?order=asc&limit=2"), ElementsAre("first", "Answer 1"));
    EXPECT_EQ(seen.instructions, "Be brief.");
    EXPECT_EQ(seen.model, "gpt-4o");
    EXPECT_EQ(seen.countHistory(), 2U);
    EXPECT_EQ(seen.obtainFirstQuestion(), "first");
    EXPECT_EQ(seen.obtainQuestion(), "second");
    const auto run = poll(thread, second);
    EXPECT_EQ(run.at("object"), "thread.run");
    EXPECT_GT(run.at("usage").at("completion_tokens"), 0);
    EXPECT_EQ(list(path).at(0).at("assistant_id"), assistant);
    EXPECT_EQ(list(path).at(0).at("role"), "assistant");
}

TEST_F(OpenAIService, SendsTheAnswerAsMessagesWithSeveralTexts) {
    emulator.queueAnswer({.choices = {{.parts = {"a", "b"}}, {.parts = {"c", "d"}}}, .runStates = {"completed"}});
    const auto thread = createThread();
    createMessage(thread, "x");
    const auto run = createRun(thread, createAssistant());
    EXPECT_THAT(pollStates(thread, run, 1), ElementsAre("completed"));
    EXPECT_THAT(listTexts("/v1/threads/" + thread + "/messages?order=asc&run_id=" + run),
                ElementsAre("a", "b", "c", "d"));
}

TEST_F(OpenAIService, EndsARunAsScripted) {
    const auto assistant = createAssistant();
    const auto thread = createThread();
    createMessage(thread, "x");
    emulator.queueAnswer({.runStates = {"queued", "failed"}, .runError = {"rate_limit_exceeded", "Slow down."}});
    const auto failed = createRun(thread, assistant);
    EXPECT_EQ(poll(thread, failed).at("last_error"), nullptr);
    EXPECT_EQ(poll(thread, failed).at("last_error"),
              (KAIEmulatorJson{{"code", "rate_limit_exceeded"}, {"message", "Slow down."}}));
    emulator.queueAnswer({.runStates = {"expired"}});
    EXPECT_EQ(poll(thread, createRun(thread, assistant)).at("status"), "expired");
    emulator.queueAnswer({.runStates = {"incomplete"}});
    EXPECT_EQ(poll(thread, createRun(thread, assistant)).at("incomplete_details").at("reason"),
              "max_completion_tokens");
    EXPECT_THAT(listTexts("/v1/threads/" + thread + "/messages"), ElementsAre("x"));
    EXPECT_EQ(list("/v1/threads/" + thread + "/runs").size(), 3U);
}

TEST_F(OpenAIService, KeepsAThreadToItsActiveRun) {
    emulator.queueAnswer({.runStates = {"in_progress"}});
    const auto assistant = createAssistant();
    const auto thread = createThread();
    createMessage(thread, "x");
    const auto run = createRun(thread, assistant);
    EXPECT_THAT(pollStates(thread, run, 3), ElementsAre("in_progress", "in_progress", "in_progress"));
    const auto path = "/v1/threads/" + thread;
    expectRefusal(client.post(path + "/messages", KAIEmulatorJson{{"role", "user"}, {"content", "y"}}), 400,
                  "Can't add messages to " + thread + " while a run " + run + " is active.");
    expectRefusal(client.post(path + "/runs", KAIEmulatorJson{{"assistant_id", assistant}}), 400,
                  "already has an active run " + run);
    EXPECT_EQ(EmulatorClient::parse(client.post(path + "/runs/" + run + "/cancel", std::string())).at("status"),
              "cancelling");
    EXPECT_THAT(pollStates(thread, run, 1), ElementsAre("cancelled"));
    expectRefusal(client.post(path + "/runs/" + run + "/cancel", std::string()), 400, "status 'cancelled'");
    createMessage(thread, "y");
}

TEST_F(OpenAIService, RefusesARunAsScripted) {
    const auto thread = createThread();
    createMessage(thread, "x");
    emulator.queueAnswer(KAIEmulatedAnswer::refuse(429, "Rate limit reached"));
    expectRefusal(client.post("/v1/threads/" + thread + "/runs", KAIEmulatorJson{{"assistant_id", createAssistant()}}),
                  429, "Rate limit reached");
    EXPECT_TRUE(list("/v1/threads/" + thread + "/runs").empty());
}

TEST_F(OpenAIService, KeepsSeveralThreadsAndAssistantsApart) {
    emulator.answerWith([](const KAIEmulatedTurn& turn) {
        return KAIEmulatedAnswer{.choices = {{.parts = {"to " + turn.obtainQuestion()}}}, .runStates = {"completed"}};
    });
    const auto firstAssistant = createAssistant();
    const auto secondAssistant = createAssistant();
    const auto firstThread = createThread();
    const auto secondThread = createThread();
    createMessage(firstThread, "one");
    createMessage(secondThread, "two");
    const auto firstRun = createRun(firstThread, firstAssistant);
    const auto secondRun = createRun(secondThread, secondAssistant);
    poll(secondThread, secondRun);
    poll(firstThread, firstRun);
    EXPECT_THAT(listTexts("/v1/threads/" + firstThread + "/messages"), ElementsAre("to one", "one"));
    EXPECT_THAT(listTexts("/v1/threads/" + secondThread + "/messages"), ElementsAre("to two", "two"));
    expectRefusal(client.get("/v1/threads/" + firstThread + "/runs/" + secondRun), 404, "No run found");
    EXPECT_EQ(list("/v1/assistants").at(0).at("id"), secondAssistant);
}

TEST_F(OpenAIService, TellsWhatIsLeft) {
    const auto assistant = createAssistant();
    const auto thread = createThread();
    EXPECT_THAT(emulator.listLeft(), ElementsAre(assistant, thread));
    EXPECT_EQ(EmulatorClient::parse(client.get("/emulator/left")).at("left"), (KAIEmulatorJson{assistant, thread}));
    EXPECT_EQ(EmulatorClient::parse(client.remove("/v1/threads/" + thread)).at("object"), "thread.deleted");
    EXPECT_EQ(client.remove("/v1/assistants/" + assistant).status, 200);
    EXPECT_TRUE(emulator.listLeft().empty());
    EXPECT_EQ(EmulatorClient::parse(client.get("/emulator/left")).at("left"), KAIEmulatorJson::array());
}

TEST_F(OpenAIService, DoesNotFindWhatIsNotThere) {
    const auto thread = createThread();
    expectRefusal(client.get("/v1/threads/thread_0"), 404, "No thread found with id 'thread_0'.");
    expectRefusal(client.remove("/v1/threads/thread_0"), 404, "No thread found");
    expectRefusal(client.post("/v1/threads/thread_0/messages", KAIEmulatorJson{{"role", "user"}, {"content", "x"}}),
                  404, "No thread found");
    expectRefusal(client.get("/v1/threads/" + thread + "/runs/run_0"), 404, "No run found");
    expectRefusal(client.get("/v1/threads/" + thread + "/messages/msg_0"), 404, "No message found");
    expectRefusal(client.post("/v1/threads/" + thread + "/runs", KAIEmulatorJson{{"assistant_id", "asst_0"}}), 404,
                  "No assistant found");
    expectRefusal(client.get("/v1/nothing"), 404, "Invalid URL (GET /v1/nothing)");
    expectRefusal(client.get("/assistants"), 404, "Invalid URL");
    expectRefusal(client.get("/v1/threads"), 405, "Not allowed to GET on /v1/threads.");
    expectRefusal(client.remove("/v1/models"), 405, "Not allowed");
}

TEST_F(OpenAIService, DemandsTheKeyAndTheBetaHeader) {
    KAIEmulator strict({.provider = "openai", .key = "right"});
    const KAIEmulatorJson body{{"model", "gpt-4o"}};
    EmulatorClient withoutKey(strict, "");
    expectRefusal(withoutKey.get("/v1/models"), 401, "You didn't provide an API key.");
    EmulatorClient wrongKey(strict, "wrong");
    const auto refused = wrongKey.post("/v1/assistants", body);
    expectRefusal(refused, 401, "Incorrect API key provided.");
    EXPECT_EQ(EmulatorClient::parse(refused).at("error").at("code"), "invalid_api_key");
    EXPECT_THAT(refused.body, testing::Not(HasSubstr("wrong")));
    EmulatorClient rightKey(strict, "right");
    expectRefusal(rightKey.post("/v1/assistants", body), 400, "You must provide the 'OpenAI-Beta' header");
    expectRefusal(rightKey.remove("/v1/threads/t"), 400, "You must provide the 'OpenAI-Beta' header");
    rightKey.addHeader("OpenAI-Beta: assistants=v2");
    EXPECT_EQ(rightKey.post("/v1/assistants", body).status, 200);
}

TEST_F(OpenAIService, RefusesBodiesThatTheServiceRefuses) {
    const auto expectAssistant = [&](const KAIEmulatorJson& body, const std::string& code, const std::string& message) {
        const auto response = client.post("/v1/assistants", body);
        expectRefusal(response, 400, message);
        EXPECT_EQ(EmulatorClient::parse(response).at("error").at("code"), code);
    };
    expectAssistant(KAIEmulatorJson::object(), "missing_required_parameter", "Missing required parameter: 'model'.");
    expectAssistant({{"model", "unknown"}}, "model_not_found", "The requested model 'unknown' does not exist.");
    expectAssistant({{"model", "gpt-4o"}, {"color", 1}}, "unknown_parameter", "Unknown parameter: 'color'.");
    expectAssistant({{"model", "gpt-4o"}, {"temperature", "0"}}, "invalid_type",
                    "Invalid type for 'temperature': expected a decimal, but got a string instead.");
    expectAssistant({{"model", "gpt-4o"}, {"temperature", 3}}, "decimal_above_max_value", "<= 2.0, but got 3 instead");
    expectAssistant({{"model", "gpt-4o"}, {"temperature", -1}}, "decimal_below_min_value", "decimal below");
    expectAssistant({{"model", "gpt-4o"}, {"name", std::string(257, 'x')}}, "string_above_max_length",
                    "maximum length 256, but got a string with length 257 instead");
    EXPECT_EQ(client.post("/v1/assistants", KAIEmulatorJson{{"model", "gpt-4o"}, {"name", nullptr}}).status, 200);
    const auto path = "/v1/threads/" + createThread() + "/messages";
    const auto expectMessage = [&](const KAIEmulatorJson& body, const std::string& message) {
        expectRefusal(client.post(path, body), 400, message);
    };
    expectMessage({{"content", "x"}}, "Missing required parameter: 'role'.");
    expectMessage({{"role", "user"}}, "Missing required parameter: 'content'.");
    expectMessage({{"role", "system"}, {"content", "x"}}, "Invalid value: 'system'.");
    expectMessage({{"role", "user"}, {"content", ""}}, "Message content must be non-empty.");
    expectMessage({{"role", "user"}, {"content", 1}}, "Invalid type for 'content'");
    expectMessage({{"role", "user"}, {"content", KAIEmulatorJson::array({{{"type", "image_url"}}})}}, "text only");
    expectRefusal(client.post(path, std::string("{")), 400, "We could not parse the JSON body of your request.");
}

TEST_F(OpenAIService, CreatesAThreadWithMessages) {
    const auto thread = create(
        "/v1/threads",
        {{"messages",
          {{{"role", "user"}, {"content", "one"}},
           {{"role", "assistant"}, {"content", KAIEmulatorJson::array({{{"type", "text"}, {"text", "two"}}})}}}}});
    EXPECT_THAT(listTexts("/v1/threads/" + thread + "/messages?order=asc"), ElementsAre("one", "two"));
}

TEST_F(OpenAIService, PagesThroughALongThread) {
    const auto thread = createThread();
    std::vector<std::string> ids;
    for (int i = 0; i < 25; ++i) {
        ids.push_back(createMessage(thread, std::to_string(i)));
    }
    const auto path = "/v1/threads/" + thread + "/messages";
    const auto page = EmulatorClient::parse(client.get(path));
    EXPECT_EQ(page.at("data").size(), 20U);
    EXPECT_EQ(page.at("has_more"), true);
    EXPECT_EQ(page.at("last_id"), ids[5]);
    EXPECT_EQ(list(path + "?after=" + ids[5]).size(), 5U);
    EXPECT_EQ(list(path + "?order=asc&before=" + ids[3]).size(), 3U);
    EXPECT_EQ(client.get(path + "?limit=101").status, 400);
}
