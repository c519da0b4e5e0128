#include <gtest/gtest.h>

#include "chat_fixture.h"

namespace {

class ChatFailure : public ChatContract {
protected:
    ChatFailure() : m_session(createSession()) { converse(*m_session, "q1", "a1"); }

    /// Expects the next turn to fail with this text and to leave no trace.
    void expectError(const std::string& error) {
        expectFailure(*m_session, error, m_history);
        m_history.messages.insert(m_history.messages.end(), {{0, "going on"}, {1, "good"}});
    }

    /// Expects a failed response to be reported as the provider's reader tells.
    void expectErrorOf(const LoopbackReply& reply, const std::string& messageOrBody, const std::string& messageOnly) {
        answer(reply);
        expectError(GetParam().chatErrors == ErrorReading::MessageOrBody ? messageOrBody : messageOnly);
    }

    /// Expects the next turn to fail with a text of the transport, whatever it is, and to leave no trace.
    void expectAnyError() {
        const std::string before = m_session->serializeSession();
        EXPECT_NE(say(*m_session, "failing").error, "");
        EXPECT_EQ(m_session->serializeSession(), before);
        KAISetHTTPSettings(makeSettings());
        ExpectedTurn next = m_history;
        next.messages.emplace_back(0, "going on");
        converse(*m_session, "going on", "good");
        EXPECT_EQ(obtainLastRequest().body, writeBody(next));
    }

    SessionHandle m_session;
    ExpectedTurn m_history{.messages = {{0, "q1"}, {1, "a1"}}};
};

INSTANTIATE_FOR_CHAT_PROVIDERS(ChatFailure);

using ChatTLSFailure = ChatFailure;
INSTANTIATE_FOR_CHAT_PROVIDERS_THAT(ChatTLSFailure, provider.tls != LoopbackTLS::Off);

int s_calls = 0;

void translate(const char* /*eventName*/, void* data) {
    ++s_calls;
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    ("<" + std::string(info->sourceText) + ">").copy(info->answerBuffer, sizeof info->answerBuffer - 1);
}

void answerNothing(const char* /*eventName*/, void* /*data*/) {
    ++s_calls;
}

}  // namespace

TEST_P(ChatFailure, OfAnEmptyModelSendsNothing) {
    const AssistantHandle assistant = createAssistant("secret", "");
    const SessionHandle session = createSession(*assistant);
    const std::string before = session->serializeSession();
    const std::size_t requests = m_server.countRequests();
    EXPECT_EQ(say(*assistant, *session, "q").error, "Model is empty" + GetParam().emptyModelSuffix);
    EXPECT_EQ(m_server.countRequests(), requests);
    EXPECT_EQ(session->serializeSession(), before);
    set(*assistant, "model", "m");
    EXPECT_EQ(say(*assistant, *session, "q").text, "a1");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q"}}}));
}

TEST_P(ChatFailure, ReportsTheServersMessage) {
    expectErrorOf({.status = 401, .body = R"({"error":{"message":"bad key","type":"auth"}})"}, "bad key", "bad key");
    expectErrorOf({.status = 429, .body = R"({"error":{"code":429,"message":"slow down"}})"}, "slow down", "slow down");
}

TEST_P(ChatFailure, ReportsABodyWithoutAMessageAsEachProviderDoes) {
    for (const char* body : {R"({"error":"model 'm' not found"})", R"({"error":{"message":1}})", R"({"error":{}})",
                             R"({"message":"m"})", "[]", "null", "<html>Bad Gateway</html>", " "}) {
        expectErrorOf({.status = 502, .body = body}, body, "HTTP 502 Bad Gateway");
    }
}

TEST_P(ChatFailure, ReportsTheTransportsTextWhereTheServerSaysNothing) {
    answer(LoopbackReply{.status = 500});
    expectError("HTTP 500 Internal Server Error");
    answer(LoopbackReply{.status = 404, .body = R"({"error":{"message":""}})"});
    expectError("HTTP 404 Not Found");
    answer(LoopbackReply{.status = 307, .headers = {{"Location", "/elsewhere"}}});
    expectError("HTTP 307 Temporary Redirect");
}

TEST_P(ChatFailure, LeavesTheConversationWhereNoResponseCame) {
    for (const LoopbackFault fault : {LoopbackFault::CloseBeforeReply, LoopbackFault::ResetBeforeReply}) {
        answer(LoopbackReply{.fault = fault});
        expectAnyError();
        m_history.messages.insert(m_history.messages.end(), {{0, "going on"}, {1, "good"}});
    }
}

TEST_P(ChatFailure, LeavesTheConversationWhereAResponseBrokeOff) {
    for (const LoopbackFault fault : {LoopbackFault::CutInBody, LoopbackFault::ResetInBody}) {
        answer(LoopbackReply{.body = GetParam().writeReply("\"half\""), .fault = fault});
        expectAnyError();
        m_history.messages.insert(m_history.messages.end(), {{0, "going on"}, {1, "good"}});
    }
}

TEST_P(ChatFailure, LeavesTheConversationWhereTimeRanOut) {
    CMRestGlobalSettings settings = makeSettings();
    settings.requestTimeout = std::chrono::milliseconds(100);
    KAISetHTTPSettings(settings);
    answer(LoopbackReply{.fault = LoopbackFault::StallBeforeReply});
    expectAnyError();
}

TEST_P(ChatFailure, LeavesTheConversationWhereTheResponseIsTooLong) {
    CMRestGlobalSettings settings = makeSettings();
    settings.maxResponseBytes = 1000;
    KAISetHTTPSettings(settings);
    answerText(std::string(1000, 'x'));
    expectAnyError();
}

TEST_P(ChatTLSFailure, LeavesTheConversationWhereTheCertificateIsNotTrusted) {
    KAISetHTTPSettings(CMRestGlobalSettings());
    m_server.closeConnections();
    expectAnyError();
}

TEST_P(ChatFailure, LeavesTheConversationWhereNobodyListens) {
    m_server.stop();
    const std::string before = m_session->serializeSession();
    const std::string error = say(*m_session, "failing").error;
    EXPECT_NE(error, "");
    EXPECT_EQ(error.find(": p/"), std::string::npos) << "no suffix stands behind a transport's text";
    EXPECT_EQ(m_session->serializeSession(), before);
}

TEST_P(ChatFailure, ReportsAResponseThatIsNotJSONAsInvalid) {
    for (const char* body : {"", " ", "text", "{", "<html></html>", "{} x", R"({"a":"\ud80"})", "{\"a\xff",
                             R"({"a":01})", R"({'a':1})", "\xef\xbb\xbf"}) {
        answerBody(body);
        expectError("Invalid response" + GetParam().invalidSuffix("m"));
    }
}

TEST_P(ChatFailure, ReportsJSONOfAnotherFormAsUnsupported) {
    for (const char* body : {"{}", "[]", "null", "true", "1", R"("text")", R"({"error":{"message":"m"}})"}) {
        answerBody(body);
        expectError("Unsupported data format" + GetParam().unsupportedSuffix("m"));
    }
}

TEST_P(ChatFailure, NamesTheModelThatWasAskedWhereTheSuffixHasOne) {
    set("model", "other");
    answerBody("text");
    EXPECT_EQ(say(*m_session, "q").error, "Invalid response" + GetParam().invalidSuffix("other"));
    answerBody("{}");
    EXPECT_EQ(say(*m_session, "q").error, "Unsupported data format" + GetParam().unsupportedSuffix("other"));
}

TEST_P(ChatFailure, IsReportedInTheHostsLanguageWithAnUntranslatedSuffix) {
    KAIRegisterCallback(translate);
    answerBody("text");
    expectError("<Invalid response>" + GetParam().invalidSuffix("m"));
    answerBody("{}");
    expectError("<Unsupported data format>" + GetParam().unsupportedSuffix("m"));
    const AssistantHandle assistant = createAssistant("secret", "");
    const SessionHandle session = createSession(*assistant);
    EXPECT_EQ(say(*assistant, *session, "q").error, "<Model is empty>" + GetParam().emptyModelSuffix);
}

TEST_P(ChatFailure, IsReportedInEnglishWhereTheHostAnswersNothing) {
    s_calls = 0;
    KAIRegisterCallback(answerNothing);
    answerBody("text");
    expectError("Invalid response" + GetParam().invalidSuffix("m"));
    EXPECT_EQ(s_calls, 1);
}

TEST_P(ChatFailure, OfTheServerOrTheTransportIsNotOfferedForTranslation) {
    s_calls = 0;
    KAIRegisterCallback(translate);
    answer(LoopbackReply{.status = 400, .body = R"({"error":{"message":"Invalid response"}})"});
    expectError("Invalid response");
    answer(LoopbackReply{.status = 500});
    expectError("HTTP 500 Internal Server Error");
    EXPECT_EQ(s_calls, 0);
}
