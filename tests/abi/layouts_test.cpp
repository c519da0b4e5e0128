#include <gtest/gtest.h>
#include <kai.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

// The values travel in hosts' binaries and settings files.
static_assert(std::is_same_v<std::underlying_type_t<KAIAssistantType>, std::int32_t>);
static_assert(!std::is_convertible_v<KAIAssistantType, std::int32_t>, "an enum class");
static_assert(static_cast<std::int32_t>(KAIAssistantType::OPENAI) == 0);
static_assert(static_cast<std::int32_t>(KAIAssistantType::GOOGLE) == 1);
static_assert(static_cast<std::int32_t>(KAIAssistantType::DEEPSEEK) == 2);
static_assert(static_cast<std::int32_t>(KAIAssistantType::OLLAMA) == 3);

static_assert(std::is_standard_layout_v<KAICallbackLocalizationInfo>);
static_assert(std::is_default_constructible_v<KAICallbackLocalizationInfo>);
static_assert(std::is_same_v<decltype(KAICallbackLocalizationInfo::sourceText), const char*>);
static_assert(std::is_same_v<decltype(KAICallbackLocalizationInfo::answerBuffer), char[1024]>);
static_assert(offsetof(KAICallbackLocalizationInfo, sourceText) == 0);
static_assert(offsetof(KAICallbackLocalizationInfo, answerBuffer) == sizeof(const char*));
static_assert(sizeof(KAICallbackLocalizationInfo) == sizeof(const char*) + 1024);

static_assert(
    std::is_same_v<decltype(&KAICreateAssistant),
                   IKAIAssistant* (*)(KAIAssistantType, ICSHTTPPoolCenter*, const std::string&, const std::string&)>);
static_assert(std::is_same_v<decltype(&KAIFreeObject), void (*)(IKAIObject*)>);
static_assert(std::is_same_v<KAIPtr<IKAISession>, std::unique_ptr<IKAISession, KAIObjectDeleter>>);
static_assert(sizeof(KAIPtr<IKAIObject>) == sizeof(IKAIObject*));
static_assert(std::is_same_v<decltype(&KAIRegisterCallback), void (*)(void (*)(const char*, void*))>);
static_assert(std::is_same_v<decltype(&KAISetHTTPSettings), void (*)(const CMRestGlobalSettings&)>);

TEST(KAICallbackLocalizationInfo, BeginsNullAndZeroed) {
    const KAICallbackLocalizationInfo info;
    const char zeroes[sizeof info.answerBuffer] = {};
    EXPECT_EQ(info.sourceText, nullptr);
    EXPECT_EQ(std::memcmp(info.answerBuffer, zeroes, sizeof zeroes), 0);
}

namespace {

KAICallbackLocalizationInfo makeFilledInfo() {
    KAICallbackLocalizationInfo info;
    info.sourceText = "Model is empty";
    for (std::size_t i = 0; i < sizeof info.answerBuffer; ++i) {
        info.answerBuffer[i] = static_cast<char>(i % 251);
    }
    return info;
}

bool isFilled(const KAICallbackLocalizationInfo& info) {
    const KAICallbackLocalizationInfo expected = makeFilledInfo();
    return std::strcmp(info.sourceText, expected.sourceText) == 0 &&
           std::memcmp(info.answerBuffer, expected.answerBuffer, sizeof expected.answerBuffer) == 0;
}

}  // namespace

TEST(KAICallbackLocalizationInfo, CopiesThePointerAndAllBytes) {
    const KAICallbackLocalizationInfo source = makeFilledInfo();
    KAICallbackLocalizationInfo target;
    EXPECT_EQ(&(target = source), &target);
    EXPECT_TRUE(isFilled(target));
    EXPECT_TRUE(isFilled(source));
}

TEST(KAICallbackLocalizationInfo, LeavesTheSourceOfAMoveUnchanged) {
    KAICallbackLocalizationInfo source = makeFilledInfo();
    KAICallbackLocalizationInfo target;
    EXPECT_EQ(&(target = std::move(source)), &target);
    EXPECT_TRUE(isFilled(target));
    EXPECT_TRUE(isFilled(source));  // NOLINT(bugprone-use-after-move): that it is unchanged is the point
}

TEST(KAICallbackLocalizationInfo, KeepsItsBytesWhenAssignedToItself) {
    KAICallbackLocalizationInfo info = makeFilledInfo();
    const KAICallbackLocalizationInfo& alias = info;
    info = alias;
    EXPECT_TRUE(isFilled(info));
}
