#include "kai_host_callback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "kai.h"

namespace {

struct Call {
    std::string eventName;
    std::string sourceText;
    bool isBufferZeroed = false;
};

std::vector<Call> s_calls;
std::string s_answer;

void answerFromTest(const char* eventName, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    const bool isZeroed =
        std::all_of(std::begin(info->answerBuffer), std::end(info->answerBuffer), [](char c) { return c == '\0'; });
    s_calls.push_back({eventName, info->sourceText, isZeroed});
    std::memcpy(info->answerBuffer, s_answer.c_str(), s_answer.size() + 1);
}

void answerOtherwise(const char* /*eventName*/, void* data) {
    std::strcpy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, "otherwise");
}

class KAILocalization : public testing::Test {
protected:
    void SetUp() override {
        s_calls.clear();
        s_answer.clear();
        KAIRegisterCallback(nullptr);
    }
    void TearDown() override { KAIRegisterCallback(nullptr); }
};

}  // namespace

TEST_F(KAILocalization, GivesTheTextItselfWithoutACallback) {
    EXPECT_EQ(localizeString("Invalid response"), "Invalid response");
    EXPECT_EQ(localizeString(""), "");
}

TEST_F(KAILocalization, OffersTheTextToTheCallbackOnceWithAZeroedBuffer) {
    s_answer = "Réponse invalide";
    KAIRegisterCallback(answerFromTest);
    EXPECT_EQ(localizeString("Invalid response"), "Réponse invalide");
    ASSERT_EQ(s_calls.size(), 1U);
    EXPECT_EQ(s_calls[0].eventName, "KAILocalizeString");
    EXPECT_EQ(s_calls[0].sourceText, "Invalid response");
    EXPECT_TRUE(s_calls[0].isBufferZeroed);
}

TEST_F(KAILocalization, ZeroesTheBufferForEachCall) {
    s_answer = std::string(1023, 'x');
    KAIRegisterCallback(answerFromTest);
    EXPECT_EQ(localizeString("first"), s_answer);
    s_answer = "short";
    EXPECT_EQ(localizeString("second"), "short");
    ASSERT_EQ(s_calls.size(), 2U);
    EXPECT_TRUE(s_calls[1].isBufferZeroed);
}

TEST_F(KAILocalization, UsesTheEnglishTextWhenTheAnswerIsEmpty) {
    KAIRegisterCallback(answerFromTest);
    EXPECT_EQ(localizeString("Timeout"), "Timeout");
    EXPECT_EQ(s_calls.size(), 1U);
}

TEST_F(KAILocalization, DoesNotCallTheHostForAnEmptyText) {
    s_answer = "something";
    KAIRegisterCallback(answerFromTest);
    EXPECT_EQ(localizeString(""), "");
    EXPECT_TRUE(s_calls.empty());
}

TEST_F(KAILocalization, TakesAnAnswerOf1023Bytes) {
    s_answer = std::string(1022, 'x') + "y";
    KAIRegisterCallback(answerFromTest);
    EXPECT_EQ(localizeString("Invalid response"), s_answer);
}

TEST_F(KAILocalization, EndsTheAnswerAtItsFirstNUL) {
    KAIRegisterCallback(+[](const char*, void* data) {
        std::memcpy(static_cast<KAICallbackLocalizationInfo*>(data)->answerBuffer, "ab\0cd", 5);
    });
    EXPECT_EQ(localizeString("Invalid response"), "ab");
}

TEST_F(KAILocalization, ReplacesTheCallbackByALaterOne) {
    s_answer = "former";
    KAIRegisterCallback(answerFromTest);
    KAIRegisterCallback(answerOtherwise);
    EXPECT_EQ(localizeString("Invalid response"), "otherwise");
    EXPECT_TRUE(s_calls.empty());
}

TEST_F(KAILocalization, EndsWithANullCallback) {
    KAIRegisterCallback(answerOtherwise);
    KAIRegisterCallback(nullptr);
    EXPECT_EQ(localizeString("Invalid response"), "Invalid response");
}

TEST(KAICallbackLocalizationInfo, IsAPlainRecordThatStartsEmpty) {
    static_assert(std::is_standard_layout_v<KAICallbackLocalizationInfo>);
    static_assert(offsetof(KAICallbackLocalizationInfo, sourceText) == 0);
    static_assert(offsetof(KAICallbackLocalizationInfo, answerBuffer) == sizeof(const char*));
    static_assert(sizeof(KAICallbackLocalizationInfo::answerBuffer) == 1024);
    const KAICallbackLocalizationInfo info;
    EXPECT_EQ(info.sourceText, nullptr);
    EXPECT_EQ(std::count(std::begin(info.answerBuffer), std::end(info.answerBuffer), '\0'), 1024);
}

TEST(KAICallbackLocalizationInfo, CopiesThePointerAndAll1024BytesByCopyAndByMoveAssignment) {
    const char* const text = "source";
    KAICallbackLocalizationInfo source;
    source.sourceText = text;
    for (std::size_t i = 0; i < sizeof source.answerBuffer; ++i) {
        source.answerBuffer[i] = static_cast<char>(i * 7);
    }
    const KAICallbackLocalizationInfo original(source);
    KAICallbackLocalizationInfo copied;
    KAICallbackLocalizationInfo moved;
    EXPECT_EQ(&(copied = source), &copied);
    EXPECT_EQ(&(moved = std::move(source)), &moved);
    for (const KAICallbackLocalizationInfo* info : {&copied, &moved, &source}) {
        EXPECT_EQ(info->sourceText, text);
        EXPECT_EQ(std::memcmp(info->answerBuffer, original.answerBuffer, 1024), 0);
    }
}

TEST(KAICallbackLocalizationInfo, StaysAsItIsWhenAssignedToItself) {
    KAICallbackLocalizationInfo info;
    info.sourceText = "source";
    std::strcpy(info.answerBuffer, "answer");
    KAICallbackLocalizationInfo& same = info;
    info = same;
    info = std::move(same);
    EXPECT_STREQ(info.sourceText, "source");
    EXPECT_STREQ(info.answerBuffer, "answer");
}
