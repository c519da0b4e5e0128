#include "kai_emulator.h"

#include <gmock/gmock.h>

#include "emulator_client.h"

namespace {

const KAIEmulatorJson question{{"model", "deepseek-v4-flash"},
                               {"messages", KAIEmulatorJson::array({{{"role", "user"}, {"content", "Who?"}}})}};

std::string readAnswer(const PlainResponse& response) {
    return EmulatorClient::parse(response).at("choices")[0].at("message").at("content").get<std::string>();
}

}  // namespace

TEST(KAIEmulator, AnswersFromTheQueueThenFromTheFunctionThenFromTheScenario) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    emulator.playScenario(readScenario(R"({"rules":[{"answer":"by scenario"}]})", "test"));
    emulator.answerWith(
        [](const KAIEmulatedTurn& turn) { return KAIEmulatedAnswer::say(std::to_string(turn.number)); });
    emulator.queueAnswer(KAIEmulatedAnswer::say("queued"));
    EXPECT_EQ(readAnswer(client.post("/chat/completions", question)), "queued");
    EXPECT_EQ(readAnswer(client.post("/chat/completions", question)), "2");
    emulator.answerWith(nullptr);
    EXPECT_EQ(readAnswer(client.post("/chat/completions", question)), "by scenario");
}

TEST(KAIEmulator, StartsEveryServiceByItsName) {
    for (const KAIEmulatedServiceRow& service : listEmulatedServices()) {
        KAIEmulator emulator({.provider = std::string(service.name)});
        EXPECT_EQ(findEmulatedService(service.name), &service);
        EXPECT_EQ(EmulatorClient(emulator).get("/nothing/there").status, 404) << service.name;
    }
}

TEST(KAIEmulator, RefusesAServiceThatDoesNotExist) {
    EXPECT_EQ(findEmulatedService("nobody"), nullptr);
    EXPECT_THROW(KAIEmulator({.provider = "nobody"}), std::runtime_error);
}

TEST(KAIEmulator, RefusesInTheServicesOwnShape) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    emulator.queueAnswer(KAIEmulatedAnswer::refuse(402, "Insufficient Balance"));
    const auto response = client.post("/chat/completions", question);
    EXPECT_EQ(response.status, 402);
    EXPECT_EQ(EmulatorClient::parse(response).at("error").at("message"), "Insufficient Balance");
}

TEST(KAIEmulator, ChangesAReplyOnItsWay) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    auto answer = KAIEmulatedAnswer::say("never whole");
    answer.change = [](LoopbackReply& reply) { reply.fault = LoopbackFault::CutInBody; };
    emulator.queueAnswer(answer);
    EXPECT_EQ(client.post("/chat/completions", question).code, CURLE_PARTIAL_FILE);
    EXPECT_EQ(client.post("/chat/completions", question).status, 200);
}

TEST(KAIEmulator, SendsAReplyInPlaceOfTheServices) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    emulator.replyNext({.status = 503, .body = "busy"});
    const auto response = client.get("/models");
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.body, "busy");
    EXPECT_EQ(client.get("/models").status, 200);
}

TEST(KAIEmulator, InterceptsTheRequestsThatFitAsOftenAsTold) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    emulator.intercept({.method = "POST", .pathPart = "/chat/", .reply = LoopbackReply{.status = 500}, .times = 2});
    EXPECT_EQ(client.get("/models").status, 200);
    EXPECT_EQ(client.post("/chat/completions", question).status, 500);
    EXPECT_EQ(client.post("/chat/completions", question).status, 500);
    EXPECT_EQ(client.post("/chat/completions", question).status, 200);
    emulator.intercept({.pathPart = "models", .reply = LoopbackReply{.status = 418}, .times = 0});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.get("/models").status, 418);
    }
}

TEST(KAIEmulator, ChangesTheServicesReplyByAnInterception) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    emulator.intercept({.change = [](LoopbackReply& reply) { reply.body.insert(0, "\n\n"); }});
    EXPECT_EQ(client.get("/models").body.substr(0, 3), "\n\n{");
}

TEST(KAIEmulator, RecordsWhatItIsAsked) {
    KAIEmulator emulator({.tls = LoopbackTLS::Off});
    EmulatorClient client(emulator);
    static_cast<void>(client.get("/models"));
    static_cast<void>(client.post("/chat/completions", question));
    const auto requests = emulator.obtainServer().requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[1].body, question.dump());
    EXPECT_EQ(requests[1].connection, 1U);
    ASSERT_NE(requests[1].findHeader("Authorization"), nullptr);
    EXPECT_EQ(*requests[1].findHeader("Authorization"), "Bearer secret");
}

TEST(KAIEmulator, TellsAnObserverOfEachRequest) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    std::vector<std::string> lines;
    emulator.observe([&](const LoopbackRequest& request, int status) {
        lines.push_back(request.path + " " + std::to_string(status));
    });
    static_cast<void>(client.get("/models"));
    static_cast<void>(client.get("/nothing"));
    EXPECT_THAT(lines, testing::ElementsAre("/models 200", "/nothing 404"));
}

TEST(KAIEmulator, UsesOneConnectionAndOneHandshakeForAConversation) {
    KAIEmulator emulator;
    EmulatorClient client(emulator);
    for (int i = 0; i < 5; ++i) {
        static_cast<void>(client.post("/chat/completions", question));
    }
    EXPECT_EQ(emulator.obtainServer().countConnections(), 1U);
    EXPECT_EQ(emulator.obtainServer().countHandshakes(), 1U);
}
