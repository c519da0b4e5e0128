#include <gtest/gtest.h>

#include "openai_fixture.h"

using Texts = std::vector<std::string>;

namespace {

class OpenAIModels : public OpenAITest {
protected:
    Texts list(const std::string& data) {
        answer("GET /v1/models", R"({"object":"list","data":)" + data + "}");
        auto [models, error] = m_assistant->obtainAvailableModels();
        EXPECT_EQ(error, "") << data;
        return models;
    }

    void expectError(const std::string& error) {
        const auto [models, text] = m_assistant->obtainAvailableModels();
        EXPECT_TRUE(models.empty());
        EXPECT_EQ(text, error);
    }
};

std::string write(const std::string& id, const std::string& created) {
    return R"({"id":")" + id + R"(","object":"model","created":)" + created + R"(,"owned_by":"x"})";
}

}  // namespace

TEST_F(OpenAIModels, AreListedNewestFirstByOneRequest) {
    EXPECT_EQ(list("[" + write("old", "1") + "," + write("new", "3") + "," + write("middle", "2") + "]"),
              (Texts{"new", "middle", "old"}));
    EXPECT_EQ(takeRequests(), Texts{"GET /v1/models"});
}

TEST_F(OpenAIModels, OfTheSameTimeStayInTheOrderOfTheResponse) {
    std::string data;
    Texts expected;
    for (int i = 0; i < 40; ++i) {
        const std::string id = "m" + std::to_string(i * 7 % 40);
        data += (data.empty() ? "" : ",") + write(id, "5");
        expected.push_back(id);
    }
    EXPECT_EQ(list("[" + data + "]"), expected);
}

TEST_F(OpenAIModels, AreOrderedByTheLow32BitsOfTheirTimeReadAsSigned) {
    EXPECT_EQ(list("[" + write("beyond", "4294967297") + "," + write("sign", "2147483648") + "," + write("two", "2") +
                   "," + write("top", "2147483647") + "," + write("minus", "-1") + "]"),
              (Texts{"top", "two", "beyond", "minus", "sign"}));
}

TEST_F(OpenAIModels, HaveTheFractionOfTheirTimeCutOffAndCountAsZeroOutside64Bits) {
    EXPECT_EQ(list("[" + write("huge", "1e300") + "," + write("fraction", "1.9") + "," + write("one", "1") + "," +
                   write("integer", "123456789012345678901234567890") + "," + write("minus", "-0.5") + "]"),
              (Texts{"fraction", "one", "huge", "integer", "minus"}));
}

TEST_F(OpenAIModels, OfAnotherFormAreLeftOut) {
    Texts items{"null",
                "1",
                "\"m\"",
                "[]",
                "{}",
                R"({"id":"x","object":"Model","created":1})",
                R"({"id":"x","object":"assistant","created":1})",
                R"({"id":"x","created":1})"};
    for (const std::string& id : writeMembersThatAreNoString("id")) {
        items.push_back("{" + id + R"("object":"model","created":1})");
    }
    for (const char* created : {"null", "\"1\"", "true", "[]", "{}"}) {
        items.push_back(write("x", created));
    }
    items.push_back(R"({"id":"x","object":"model"})");
    for (const std::string& item : items) {
        EXPECT_EQ(list("[" + item + "," + write("good", "1") + "]"), Texts{"good"}) << item;
    }
    EXPECT_EQ(list("[" + write("", "1") + "]"), Texts{""}) << "an empty identifier is a string";
}

TEST_F(OpenAIModels, MayBeNone) {
    EXPECT_EQ(list("[]"), Texts());
}

TEST_F(OpenAIModels, ReportAnErrorObjectInAGoodResponse) {
    answer("GET /v1/models", R"({"error":{"message":"try later"},"data":[]})");
    expectError("try later");
    for (const char* error : {"null", "\"text\"", "[]", "{}", R"({"message":1})"}) {
        EXPECT_EQ(list("[],\"error\":" + std::string(error)), Texts());
    }
}

TEST_F(OpenAIModels, ReportAFailedRequestInTheWordsOfTheService) {
    KAIRegisterCallback([](const char*, void* data) {
        std::string("translated").copy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, 1023);
    });
    answer("GET /v1/models", LoopbackReply{.status = 401, .body = R"({"error":{"message":"bad key"}})"});
    expectError("bad key");
    answer("GET /v1/models", LoopbackReply{.status = 502, .body = "bad gateway"});
    expectError("bad gateway");
    answer("GET /v1/models", LoopbackReply{.status = 401});
    expectError("HTTP 401 Unauthorized");
}

TEST_F(OpenAIModels, ReportEveryOtherResponseAsUnsupportedAlsoOneThatIsNotJSON) {
    for (const char* body : {"", "text", "{", "{}", "[]", "null", R"({"data":null})", R"({"data":{}})",
                             R"({"data":"m"})", R"({"models":[]})"}) {
        answer("GET /v1/models", body);
        expectError("Unsupported data format: g/v1/models");
    }
}
