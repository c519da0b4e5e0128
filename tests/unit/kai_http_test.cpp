#include "kai_http.h"

#include <gtest/gtest.h>

#include <memory>

#include "loopback_server.h"

namespace {

class KAIHTTP : public testing::Test {
protected:
    ~KAIHTTP() override { HTTP::setGlobalSettings(CMRestGlobalSettings()); }

    static std::unique_ptr<CMRestResourceResponse> own(HTTP::Result& result) {
        return std::unique_ptr<CMRestResourceResponse>(result.first);
    }

    [[nodiscard]] std::string obtainURL(const std::string& path = "/x") const { return m_server.obtainURL(path); }

    LoopbackReply m_reply{.body = "body"};
    LoopbackServer m_server{[this](const LoopbackRequest&) { return m_reply; }};
    CMRestSession m_session;
};

std::string readBody(const std::string& body) {
    CMRestResourceResponse response(400, body);
    return kai::readErrorBody(&response);
}

}  // namespace

TEST_F(KAIHTTP, GetsWithoutQueryAndHeadersWhereBothListsAreEmpty) {
    HTTP::Result result = HTTP::Get(&m_session, obtainURL(), {}, {});
    const auto response = own(result);
    EXPECT_EQ(result.second, "");
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->getBufferString(), "body");
    const LoopbackRequest request = m_server.requests().at(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/x");
    EXPECT_EQ(request.findHeader("Authorization"), nullptr);
}

TEST_F(KAIHTTP, SendsQueryParametersEncodedAndHeadersBehindTheSessionsInOrder) {
    m_session.addHeaderParam("X-Session", "s");
    m_session.setAuthorizationHeaderValue("Bearer key");
    HTTP::Result result =
        HTTP::Get(&m_session, obtainURL(), {{"b", "1 2"}, {"a", "&="}}, {{"X-One", "1"}, {"X-Two", "2"}});
    own(result);
    const LoopbackRequest request = m_server.requests().at(0);
    EXPECT_EQ(request.target, "/x?b=1%202&a=%26%3D");
    EXPECT_EQ(*request.findHeader("X-Session"), "s");
    EXPECT_EQ(*request.findHeader("X-One"), "1");
    EXPECT_EQ(*request.findHeader("X-Two"), "2");
    EXPECT_EQ(*request.findHeader("Authorization"), "Bearer key");
}

TEST_F(KAIHTTP, PostsNoBodyForANullOne) {
    HTTP::Result result = HTTP::Post(&m_session, obtainURL(), nullptr, {}, {});
    own(result);
    const LoopbackRequest request = m_server.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, "");
    EXPECT_EQ(request.findHeader("Content-Type"), nullptr);
}

TEST_F(KAIHTTP, PostsAJSONBodyWithParametersAndHeaders) {
    COJson body;
    body.addKeyValue("b").setString("x");
    body.addKeyValue("a").setDouble(0.5);
    HTTP::Result result = HTTP::Post(&m_session, obtainURL(), &body, {{"q", "1"}}, {{"X-One", "1"}});
    own(result);
    const LoopbackRequest request = m_server.requests().at(0);
    EXPECT_EQ(request.target, "/x?q=1");
    EXPECT_EQ(request.body, R"({"b":"x","a":0.5})");
    EXPECT_EQ(*request.findHeader("Content-Type"), "application/json");
    EXPECT_EQ(*request.findHeader("X-One"), "1");
}

TEST_F(KAIHTTP, DeletesWithoutBodyAndParameters) {
    HTTP::Result result = HTTP::Delete(&m_session, obtainURL("/x/y"));
    own(result);
    const LoopbackRequest request = m_server.requests().at(0);
    EXPECT_EQ(request.method, "DELETE");
    EXPECT_EQ(request.target, "/x/y");
    EXPECT_EQ(request.body, "");
}

TEST_F(KAIHTTP, HandsBackBothResponseAndTextOfAFailedExchange) {
    m_reply = {.status = 404, .body = "missing"};
    for (HTTP::Result result :
         {HTTP::Get(&m_session, obtainURL(), {}, {}), HTTP::Post(&m_session, obtainURL(), nullptr, {}, {}),
          HTTP::Delete(&m_session, obtainURL())}) {
        const auto response = own(result);
        EXPECT_EQ(result.second, "HTTP 404 Not Found");
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(response->getBufferString(), "missing");
    }
}

TEST_F(KAIHTTP, HandsBackATextWithoutAResponseWhereNoneCame) {
    m_server.stop();
    HTTP::Result result = HTTP::Get(&m_session, obtainURL(), {}, {});
    EXPECT_EQ(result.first, nullptr);
    EXPECT_NE(result.second, "");
}

TEST_F(KAIHTTP, RunsEachExchangeWithTheSettingsAsTheyThenStand) {
    CMRestGlobalSettings settings;
    settings.userAgent = "first";
    HTTP::setGlobalSettings(settings);
    HTTP::Result first = HTTP::Get(&m_session, obtainURL(), {}, {});
    own(first);
    settings.userAgent = "second";
    HTTP::setGlobalSettings(settings);
    HTTP::Result second = HTTP::Get(&m_session, obtainURL(), {}, {});
    own(second);
    EXPECT_EQ(*m_server.requests().at(0).findHeader("User-Agent"), "first");
    EXPECT_EQ(*m_server.requests().at(1).findHeader("User-Agent"), "second");
}

TEST(KAIErrorBody, IsTheMessageOfAnErrorObject) {
    EXPECT_EQ(readBody(R"({"error":{"message":"text","code":1}})"), "text");
    EXPECT_EQ(readBody(R"({"error":{"message":""}})"), "");
}

TEST(KAIErrorBody, IsTheRawBodyOtherwise) {
    for (const char* body : {R"({"error":"text"})", R"({"error":{"message":1}})", R"({"error":{"message":null}})",
                             R"({"error":{}})", R"({"error":[{"message":"text"}]})", R"({"message":"text"})", "{}",
                             "[]", "null", "\"text\"", "text", "", "{", "<html>"}) {
        EXPECT_EQ(readBody(body), body);
    }
    EXPECT_EQ(readBody(std::string("a\0\xff", 3)), std::string("a\0\xff", 3));
}

TEST(KAIErrorBody, IsEmptyForANullResponse) {
    EXPECT_EQ(kai::readErrorBody(nullptr), "");
    EXPECT_EQ(kai::findErrorMessage(nullptr), std::nullopt);
}
