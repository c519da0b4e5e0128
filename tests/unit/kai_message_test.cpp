#include "kai_message.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

namespace {

class CountedSection : public IKAIMessageSection {
public:
    explicit CountedSection(int& destroyed) : m_destroyed(destroyed) {}
    ~CountedSection() override { ++m_destroyed; }

    std::int32_t obtainType() override { return 0; }
    std::string_view obtainText() override { return "counted"; }

private:
    int& m_destroyed;
};

std::int64_t readClock() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

TEST(KAIMessageTextSection, IsOfTypeZeroAndEmptyWhenBuiltFromAnEmptyString) {
    KAIMessageTextSection section{std::string()};
    EXPECT_EQ(section.obtainType(), 0);
    EXPECT_TRUE(section.obtainText().empty());
}

TEST(KAIMessageTextSection, GivesItsTextWithTheBytesItWasBuiltFrom) {
    const std::string text("a\0b\xff\n\xe2\x82\xac", 8);
    KAIMessageTextSection section(text);
    EXPECT_EQ(section.obtainType(), 0);
    EXPECT_EQ(section.obtainText(), text);
}

TEST(KAIMessage, StartsAsTheAssistantsAtTimeZeroWithoutSections) {
    KAIMessage message;
    EXPECT_EQ(message.obtainRole(), 1);
    EXPECT_EQ(message.obtainTime(), 0);
    EXPECT_TRUE(message.obtainSections().empty());
}

TEST(KAIMessage, FreesEachOfItsSectionsExactlyOnce) {
    int destroyed[3] = {0, 0, 0};
    auto message = std::make_unique<KAIMessage>();
    for (int& count : destroyed) {
        message->obtainSections().push_back(new CountedSection(count));
    }
    message->addTextSection("text");
    IKAIObject* object = message.release();
    KAIFreeObject(object);
    for (const int count : destroyed) {
        EXPECT_EQ(count, 1);
    }
}

TEST(KAIMessage, GivesAReferenceToItsOwnSections) {
    KAIMessage message;
    message.addTextSection("first");
    message.addTextSection("second");
    std::vector<IKAIMessageSection*>& sections = message.obtainSections();
    ASSERT_EQ(sections.size(), 2U);
    EXPECT_EQ(sections[0]->obtainText(), "first");
    EXPECT_EQ(sections[1]->obtainText(), "second");
    EXPECT_EQ(&sections, &message.obtainSections());
}

TEST(KAIMessage, KeepsRoleAndTimeItIsBuiltWith) {
    constexpr std::int64_t kBeyond32Bits = 0x1'0000'0001;
    const auto message = kai::createTextMessage(KAI_ROLE_USER, kBeyond32Bits, "hello");
    EXPECT_EQ(message->obtainRole(), 0);
    EXPECT_EQ(message->obtainTime(), kBeyond32Bits);
    ASSERT_EQ(message->obtainSections().size(), 1U);
    EXPECT_EQ(message->obtainSections().front()->obtainText(), "hello");
    message->setTime(7);
    EXPECT_EQ(message->obtainTime(), 7);
}

TEST(KAIMessage, TakesFurtherSectionsBehindTheTextItWasMadeOf) {
    int destroyed = 0;
    const auto message = kai::createTextMessage(KAI_ROLE_USER, 0, "first");
    message->addTextSection("second");
    message->obtainSections().push_back(new CountedSection(destroyed));
    ASSERT_EQ(message->obtainSections().size(), 3U);
    EXPECT_EQ(message->obtainSections()[0]->obtainText(), "first");
    EXPECT_EQ(message->obtainSections()[1]->obtainText(), "second");
    EXPECT_EQ(kai::obtainFirstText(*message), "first");
}

TEST(KAIMessage, ThrowsOutOfRangeForTheFirstTextWhereThereIsNoSection) {
    KAIMessage message;
    try {
        kai::obtainFirstText(message);
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid vector subscript");
    }
}

TEST(KAIMessage, GivesTheTextOfTheFirstOfSeveralSections) {
    KAIMessage message;
    message.addTextSection("first");
    message.addTextSection("second");
    EXPECT_EQ(kai::obtainFirstText(message), "first");
}

TEST(KAIMessage, GivesTheSameFirstTextBeforeAndAfterItsSectionsAreAskedFor) {
    const auto message = kai::createTextMessage(KAI_ROLE_USER, 0, "hello");
    EXPECT_EQ(kai::obtainFirstText(*message), "hello");
    EXPECT_EQ(message->obtainSections().size(), 1U);
    EXPECT_EQ(kai::obtainFirstText(*message), "hello");
    EXPECT_EQ(message->obtainSections().size(), 1U);
    message->addTextSection("more");
    EXPECT_EQ(kai::obtainFirstText(*message), "hello");
    EXPECT_EQ(message->obtainSections().size(), 2U);
}

TEST(KAIMessage, TakesTheCurrentTimeInWholeSecondsSinceTheEpoch) {
    const std::int64_t before = readClock();
    const std::int64_t time = kai::obtainCurrentTime();
    EXPECT_GE(time, before);
    EXPECT_LE(time, readClock());
}
