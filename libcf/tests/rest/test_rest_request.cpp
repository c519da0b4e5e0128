#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

#include "cf/rest.h"
#include "rest/rest_caller.h"

namespace {

class ThrowingBody : public ICOJsonValue {
public:
    void writeJson(COJsonWriter& writer) const override {
        writer.beginObject();
        throw std::runtime_error("no body");
    }
};

std::string joinBody(const CMRestPostRequest& request) {
    std::string body;
    for (const COJsonPiece& piece : *request.obtainBodyPieces()) {
        body += piece.text;
    }
    return body;
}

}  // namespace

TEST(CMRestRequest, CarriesAMarkAsItsFirstMember) {
    CMRestGetRequest request;
    EXPECT_EQ(request.m_requestMark, 0U);
    request.m_requestMark = 2062955722U;
    EXPECT_EQ(request.m_requestMark, 2062955722U);
}

TEST(CMRestRequest, IsDestroyedThroughItsBase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CMRestRequest>);
    std::unique_ptr<CMRestRequest> request = std::make_unique<CMRestPostRequest>();
    request->setURL("http://localhost/");
    EXPECT_EQ(request->obtainURL(), "http://localhost/");
}

TEST(CMRestRequest, KeepsTheOrderOfParametersAddedInParts) {
    CMRestPostRequest request;
    request.addQueryParams({{"b", "1"}, {"a", "2"}});
    request.addQueryParams({{"b", "3"}});
    request.addHeaderParams({{"X-B", "1"}});
    request.addHeaderParams({{"X-A", "2"}});
    EXPECT_EQ(request.obtainQueryParams(), (CMRestParams{{"b", "1"}, {"a", "2"}, {"b", "3"}}));
    EXPECT_EQ(request.obtainHeaderParams(), (CMRestParams{{"X-B", "1"}, {"X-A", "2"}}));
}

TEST(CMRestPostRequest, HasNoBodyAtFirst) {
    EXPECT_EQ(CMRestPostRequest().obtainBodyPieces(), nullptr);
}

TEST(CMRestPostRequest, WritesTheBodyAtOnceAndKeepsNoReference) {
    CMRestPostRequest request;
    {
        const RestTextBody body("one");
        request.updateJson(&body);
    }
    EXPECT_EQ(joinBody(request), "\"one\"");
}

TEST(CMRestPostRequest, ReplacesAndRemovesTheBody) {
    CMRestPostRequest request;
    const RestTextBody first("a text that is longer than the second one");
    const RestTextBody second("two");
    request.updateJson(&first);
    request.updateJson(&second);
    EXPECT_EQ(joinBody(request), "\"two\"");
    request.updateJson(nullptr);
    EXPECT_EQ(request.obtainBodyPieces(), nullptr);
}

TEST(CMRestPostRequest, HasNoBodyAfterOneThatThrew) {
    CMRestPostRequest request;
    const RestTextBody body("former");
    request.updateJson(&body);
    EXPECT_THROW(request.updateJson(&std::as_const(*std::make_unique<ThrowingBody>())), std::runtime_error);
    EXPECT_EQ(request.obtainBodyPieces(), nullptr);
}

TEST(CMRestResourceResponse, ReadsJSONOnceAndKeepsIt) {
    CMRestResourceResponse response(200, R"({"a": 1})");
    COJson* const json = response.getJson();
    ASSERT_NE(json, nullptr);
    EXPECT_TRUE(json->getIsValidJson());
    EXPECT_EQ(json->obtainMember("a").obtainDouble(), 1.0);
    EXPECT_EQ(response.getJson(), json);
}

TEST(CMRestResourceResponse, GivesNullForABodyThatIsNotJSON) {
    for (const char* const body : {"", "<html>", "{\"a\": 1} x", "{\"a\""}) {
        CMRestResourceResponse response(200, body);
        EXPECT_EQ(response.getJson(), nullptr) << body;
        EXPECT_EQ(response.getJson(), nullptr) << body;
        EXPECT_EQ(response.getBufferString(), body);
    }
}

TEST(CMRestResourceResponse, KeepsTheBodyAsItCameBesideItsJSON) {
    CMRestResourceResponse response(201, " {\"a\" : \"\\u0041\"}\n");
    ASSERT_NE(response.getJson(), nullptr);
    EXPECT_EQ(response.getJson()->obtainMember("a").obtainString(), "A");
    EXPECT_EQ(response.getBufferString(), " {\"a\" : \"\\u0041\"}\n");
    EXPECT_EQ(response.obtainStatus(), 201);
}

TEST(CMRestGlobalSettings, IsRightForMostHostsByDefault) {
    const CMRestGlobalSettings settings;
    EXPECT_EQ(settings.connectTimeout, std::chrono::seconds(15));
    EXPECT_EQ(settings.requestTimeout, std::chrono::minutes(10));
    EXPECT_EQ(settings.proxyURL, "");
    EXPECT_EQ(settings.caBundleFile, "");
    EXPECT_TRUE(settings.verifyPeer);
    EXPECT_EQ(settings.userAgent, "libcf/" CF_VERSION);
    EXPECT_EQ(settings.maxResponseBytes, 64U * 1024 * 1024);
    EXPECT_FALSE(settings.cancelled);
    EXPECT_FALSE(settings.trace);
}

TEST(CMRestResourceResponse, ReadsItsBodyIntoADocumentOfTheCaller) {
    COJson document;
    CMRestResourceResponse first(200, R"({"a":1})");
    EXPECT_TRUE(first.readJson(document));
    EXPECT_EQ(document.obtainMember("a").obtainInteger(), 1);
    CMRestResourceResponse second(200, "no JSON");
    EXPECT_FALSE(second.readJson(document));
    EXPECT_FALSE(document.getIsValidJson());
    CMRestResourceResponse third(200, R"({"a":"b"})");
    EXPECT_TRUE(third.readJson(document));
    EXPECT_EQ(document.obtainMember("a").obtainString(), "b");
    EXPECT_EQ(third.getBufferString(), R"({"a":"b"})");
}
