#include "kai_chat_history.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "chat_text.h"
#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"

namespace {

constexpr kai::SourcePlace kPlace{"test", 1};

std::string join(const kai::ChatHistory& history) {
    std::string text;
    for (const std::string& block : history.obtainBlocks()) {
        text += block;
    }
    return text;
}

std::string writeSessionText(const kai::ChatHistory& history) {
    std::string text;
    history.appendSessionText(text, kPlace);
    return text;
}

}  // namespace

TEST(ChatHistory, KeepsItsMessagesAsTheyAreSent) {
    kai::ChatHistory history(kai::obtainGoogleProtocol());
    EXPECT_EQ(join(history), "");
    history.appendMessage(KAI_ROLE_USER, "say \"hi\"\n");
    history.appendMessage(KAI_ROLE_ASSISTANT, "\xff");
    EXPECT_EQ(join(history), R"({"role":"user","parts":[{"text":"say \"hi\"\n"}]},)"
                             R"({"role":"model","parts":[{"text":")"
                             "\xef\xbf\xbd"
                             R"("}]},)");
}

TEST(ChatHistory, IsWrittenAlikeIntoTheSessionTextOfEveryProvider) {
    kai::ChatHistory deepSeek(kai::obtainDeepSeekProtocol());
    kai::ChatHistory google(kai::obtainGoogleProtocol());
    EXPECT_EQ(writeSessionText(google), "");
    EXPECT_EQ(writeSessionText(deepSeek), "");
    for (int i = 0; i < 500; ++i) {
        for (kai::ChatHistory* history : {&deepSeek, &google}) {
            history->appendMessage(i % 3 == 0 ? KAI_ROLE_USER : KAI_ROLE_ASSISTANT, std::string(i, '"'));
        }
    }
    const std::string text = writeSessionText(deepSeek);
    EXPECT_TRUE(text.starts_with(R"({"role":"user","content":""},{"role":"assistant","content":"\""},)")) << text;
    EXPECT_TRUE(text.ends_with(R"(\""})"));
    EXPECT_TRUE(writeSessionText(google) == text);
    EXPECT_GT(google.obtainBlocks().size(), 1U);
}

TEST(ChatHistory, TakesTheFirstSectionOfAMessageOfSeveral) {
    kai::ChatHistory history(kai::obtainDeepSeekProtocol());
    KAIMessage message;
    message.addTextSection("first");
    message.addTextSection("second");
    history.appendMessage(message);
    EXPECT_EQ(join(history), R"({"role":"assistant","content":"first"},)");
}

TEST(ChatHistory, ThrowsForAMessageWithoutASectionAndStaysAsItWas) {
    kai::ChatHistory history(kai::obtainDeepSeekProtocol());
    history.appendMessage(KAI_ROLE_USER, "q");
    const std::string before = join(history);
    KAIMessage message;
    for (const auto& append : {std::function<void()>([&] { history.appendMessage(message); }),
                               std::function<void()>([&] { history.appendTurn("{}", message); })}) {
        try {
            append();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "invalid vector subscript");
        }
        EXPECT_EQ(join(history), before);
        EXPECT_EQ(writeSessionText(history), R"({"role":"user","content":"q"})");
    }
}

TEST(ChatHistory, NeverMovesWhatItHolds) {
    kai::ChatHistory history(kai::obtainDeepSeekProtocol());
    history.appendMessage(KAI_ROLE_USER, "first");
    const std::string_view first = history.obtainBlocks().front();
    const std::string before(first);
    for (int i = 0; i < 2000; ++i) {
        history.appendMessage(KAI_ROLE_USER, std::string(300, 'x'));
    }
    EXPECT_EQ(first, before);
    EXPECT_EQ(history.obtainBlocks().front().data(), first.data());
}

TEST(ChatHistory, MovesNoBlockForTextsThatGrowMostWhenTheyAreEscaped) {
    kai::ChatHistory history(kai::obtainGoogleProtocol(), std::size_t{64} * 1024);
    std::vector<const char*> addresses;
    for (std::size_t i = 0; i < 2000; ++i) {
        history.appendMessage(KAI_ROLE_USER, std::string(i % 300, '\x1f'));
        const std::vector<std::string>& blocks = history.obtainBlocks();
        for (std::size_t block = 0; block < addresses.size(); ++block) {
            ASSERT_EQ(blocks[block].data(), addresses[block]) << "block " << block << ", message " << i;
        }
        addresses.resize(blocks.size(), blocks.back().data());
    }
    EXPECT_GT(addresses.size(), 3U);
}

TEST(ChatHistory, FillsABlockBeforeItBeginsTheNext) {
    kai::ChatHistory history(kai::obtainGoogleProtocol());
    kai::ChatHistory other(kai::obtainDeepSeekProtocol());
    for (std::size_t i = 0; i < 400; ++i) {
        history.appendMessage(KAI_ROLE_USER, std::string(100 + i, 'x'));
        other.appendMessage(KAI_ROLE_USER, std::string(100 + i, 'x'));
    }
    const std::vector<std::string>& blocks = history.obtainBlocks();
    ASSERT_GT(blocks.size(), 3U);
    for (std::size_t i = 0; i + 1 < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].size(), blocks[i].capacity()) << "block " << i;
    }
    EXPECT_TRUE(writeSessionText(history) == writeSessionText(other)) << "messages that stand in two blocks";
}

TEST(ChatHistory, BeginsNoBlockForAMessageThatJustFits) {
    kai::ChatHistory history(kai::obtainGoogleProtocol());
    history.appendMessage(KAI_ROLE_USER, "");
    const std::vector<std::string>& blocks = history.obtainBlocks();
    const std::size_t frame = blocks[0].size();
    history.appendMessage(KAI_ROLE_USER, std::string(blocks[0].capacity() - 2 * frame, 'x'));
    EXPECT_EQ(blocks[0].size(), blocks[0].capacity());
    EXPECT_EQ(blocks.size(), 1U);
}

TEST(ChatHistory, TakesAMessageOfAnySize) {
    kai::ChatHistory history(kai::obtainGoogleProtocol());
    const std::string huge(1024 * 1024, '\n');
    for (const std::string& text : {std::string("small"), huge, std::string(), huge, std::string("small")}) {
        history.appendMessage(KAI_ROLE_ASSISTANT, text);
    }
    const COJson json("[" + writeSessionText(history) + "]");
    std::vector<std::size_t> sizes;
    for (const COJsonValue item : json.obtainRoot().obtainItems()) {
        sizes.push_back(item.obtainMember("content").obtainString().size());
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{5, huge.size(), 0, huge.size(), 5}));
}
