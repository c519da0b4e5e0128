#include <gtest/gtest.h>

#include <stdexcept>

#include "chat_fixture.h"

namespace {

using ChatConversation = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS(ChatConversation);

constexpr const char* kOneTable = R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])";

}  // namespace

TEST_P(ChatConversation, SendsAFirstTurnAndGivesTheReply) {
    const SessionHandle session = createSession();
    converse(*session, "hello", "hi there");
    ASSERT_EQ(m_server.countRequests(), 1U);
    const LoopbackRequest request = obtainLastRequest();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, obtainTarget(GetParam().chatPath("m")));
    EXPECT_EQ(request.isTLS, GetParam().tls != LoopbackTLS::Off);
    EXPECT_EQ(request.body, writeBody({.messages = {{0, "hello"}}}));
}

TEST_P(ChatConversation, SendsTheBodyAsJSONWithThisProvidersCredentialAlone) {
    const SessionHandle session = createSession();
    converse(*session, "hello", "hi");
    const LoopbackRequest request = obtainLastRequest();
    ASSERT_NE(request.findHeader("Content-Type"), nullptr);
    EXPECT_EQ(*request.findHeader("Content-Type"), "application/json");
    expectHeaders(request);
    EXPECT_EQ(request.queryParams.size(), GetParam().keyParam.empty() ? 0U : 1U);
    EXPECT_EQ(request.findHeader("OpenAI-Beta"), nullptr);
}

TEST_P(ChatConversation, SendsTheWholeConversationWithTheTenthTurn) {
    const SessionHandle session = createSession();
    ExpectedTurn expected;
    for (int turn = 1; turn <= 10; ++turn) {
        const std::string question = "question " + std::to_string(turn);
        const std::string reply = "reply " + std::to_string(turn);
        expected.messages.emplace_back(0, question);
        converse(*session, question, reply);
        EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
        expected.messages.emplace_back(1, reply);
    }
    EXPECT_EQ(expected.messages.size(), 20U);
    EXPECT_EQ(m_server.countRequests(), 10U);
}

TEST_P(ChatConversation, SendsChangedPropertiesWithTheNextTurnAndTheSameHistory) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    set("model", "other");
    set("temperature", "0.5");
    set("user_instructions", "U");
    set("system_instructions", CMVariantMap{{"name", "S"}});
    set("db_structure", kOneTable);
    converse(*session, "q2", "a2");
    const ExpectedTurn expected{.model = "other",
                                .temperature = "0.5",
                                .instructions = "U\n\nS\nCREATE TABLE `t` (`a` int)\n\n",
                                .messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}};
    EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
    EXPECT_EQ(obtainLastRequest().target, obtainTarget(GetParam().chatPath("other")));
}

TEST_P(ChatConversation, SendsTheNextTurnToAChangedHost) {
    LoopbackServer other([](const LoopbackRequest&) { return LoopbackReply{.status = 418}; }, {.tls = GetParam().tls});
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    set("api_host", " " + other.obtainAuthority() + "/v1 ");
    CMRestGlobalSettings settings;
    settings.caBundleFile = other.obtainCAFile();
    KAISetHTTPSettings(settings);
    EXPECT_NE(say(*session, "q2").error, "");
    EXPECT_EQ(m_server.countRequests(), 1U);
    ASSERT_EQ(other.countRequests(), 1U);
    EXPECT_EQ(other.requests()[0].target, "/v1" + obtainTarget(GetParam().chatPath("m")));
    EXPECT_EQ(other.requests()[0].body, writeBody({.messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, TakesAnEmptyReplyIntoTheHistory) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "");
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, ""}, {0, "q2"}}}));
}

TEST_P(ChatConversation, SendsAnEmptyUserTextLikeAnyOther) {
    const SessionHandle session = createSession();
    converse(*session, "", "a1");
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, ""}, {1, "a1"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, HandsOutAReplyThatOutlivesSessionAndAssistant) {
    SessionHandle session = createSession();
    answerText("lasting");
    auto [rawMessage, error] = m_assistant->addMessage(session.get(), "q");
    const KAIPtr<IKAIMessage> message(rawMessage);
    ASSERT_NE(message, nullptr) << error;
    session.reset();
    m_assistant.reset();
    EXPECT_EQ(message->obtainSections().at(0)->obtainText(), "lasting");
}

TEST_P(ChatConversation, KeepsItsOwnCopyOfAReply) {
    const SessionHandle session = createSession();
    answerText("kept");
    auto [message, error] = m_assistant->addMessage(session.get(), "q1");
    ASSERT_NE(message, nullptr) << error;
    KAIFreeObject(message);
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "kept"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, UsesOneConnectionAndOneHandshake) {
    answerBody(GetParam().writeModels({"m"}));
    EXPECT_EQ(m_assistant->obtainAvailableModels().second, "");
    const SessionHandle first = createSession();
    const SessionHandle second = createSession();
    for (int turn = 0; turn < 3; ++turn) {
        converse(*first, "q", "a");
        converse(*second, "q", "a");
    }
    EXPECT_EQ(m_server.countRequests(), 7U);
    EXPECT_EQ(m_server.countConnections(), 1U);
    EXPECT_EQ(m_server.countHandshakes(), GetParam().tls == LoopbackTLS::Off ? 0U : 1U);
}

TEST_P(ChatConversation, WorksWithoutAPool) {
    const AssistantHandle assistant(KAICreateAssistant(GetParam().type, nullptr, "secret", m_server.obtainAuthority()));
    ASSERT_NE(assistant, nullptr);
    set(*assistant, "model", "m");
    const SessionHandle session = createSession(*assistant);
    answerText("a");
    EXPECT_EQ(say(*assistant, *session, "q1").text, "a");
    EXPECT_EQ(say(*assistant, *session, "q2").text, "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "a"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, GoesOnAfterTheServerClosedTheConnection) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    m_server.closeConnections();
    ASSERT_TRUE(m_server.waitForOpenConnections(0));
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, EndsACancelledTurnWithTheConversationAsItWas) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    CMRestGlobalSettings settings = makeSettings();
    settings.cancelled = [this] { return m_server.countRequests() >= 2; };
    KAISetHTTPSettings(settings);
    answer(LoopbackReply{.fault = LoopbackFault::StallBeforeReply});
    const std::string before = session->serializeSession();
    EXPECT_NE(say(*session, "cancelled").error, "");
    EXPECT_EQ(session->serializeSession(), before);
    KAISetHTTPSettings(makeSettings());
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
}

TEST_P(ChatConversation, PassesOnWhatTheHostsCallbackThrowsAndLeavesTheConversation) {
    const SessionHandle session = createSession();
    converse(*session, "q1", "a1");
    const std::string before = session->serializeSession();
    CMRestGlobalSettings settings = makeSettings();
    settings.trace = [](const CMRestTraceRecord&) { throw std::runtime_error("from the host"); };
    KAISetHTTPSettings(settings);
    EXPECT_THROW(static_cast<void>(m_assistant->addMessage(session.get(), "q2")), std::runtime_error);
    EXPECT_EQ(session->serializeSession(), before);
    KAISetHTTPSettings(makeSettings());
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, "a1"}, {0, "q2"}}}));
}
