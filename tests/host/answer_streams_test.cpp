// What an answer goes through on its way to the terminal, piece by piece.

#include <gtest/gtest.h>

#include "terminal/markdown_stream.h"
#include "terminal/secret_text.h"
#include "terminal/text_safety.h"
#include "terminal/visible_stream.h"

namespace {

using host::MarkdownStream;
using host::VisibleStream;

/// The text through a stream in pieces of so many bytes, which may cut no character.
template <typename Stream>
std::string pass(const std::string& text, std::size_t size) {
    Stream stream;
    std::string result;
    for (std::size_t i = 0; i < text.size(); i += size) {
        result += stream.add(std::string_view(text).substr(i, size));
    }
    return result + stream.finish();
}

std::string removeColours(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033') {
            i = text.find('m', i);
        } else {
            plain += text[i];
        }
    }
    return plain;
}

constexpr const char* kAnswer =
    "# Cities\n\nThe **largest** one is `Lyon`, 2 * 3 ** 4:\n\n- a\n  ```sql\n  SELECT name -- all\n  FROM \"c\" WHERE "
    "a = 'from';\n  ```\n\n```\nselect\n```\n##no heading\n**open\nnext";

TEST(VisibleStream, GivesTheSameTextInPiecesOfAnySize) {
    const std::string text = "a\x1b[31m\r\nb\rc\td \r";
    for (std::size_t size = 1; size < 8; ++size) {
        EXPECT_EQ(pass<VisibleStream>(text, size), host::makeVisible(text, host::LineBreaks::Keep)) << size;
    }
}

TEST(VisibleStream, HandsOutWhatIsCertainAtOnce) {
    VisibleStream stream;
    EXPECT_EQ(stream.add("The "), "The ");
    EXPECT_EQ(stream.add("answer"), "answer");
    EXPECT_EQ(stream.finish(), "");
}

TEST(VisibleStream, TakesOutASecretThatComesInPieces) {
    host::setHiddenSecret("sk-01234567");
    for (std::size_t size = 1; size < 13; ++size) {
        EXPECT_EQ(pass<VisibleStream>("key sk-01234567, sk-01", size), "key ***, sk-01") << size;
    }
    host::setHiddenSecret("");
}

TEST(VisibleStream, LooksAtTheCharacterBeforeAPiece) {
    VisibleStream stream;
    std::string result;
    for (const char* piece : {"\u2764", "\ufe0f", "a", "\ufe0f"}) {
        result += stream.add(piece);
    }
    EXPECT_EQ(result, "\u2764\ufe0fa<U+FE0F>");
}

TEST(VisibleStream, RemembersWhatWasShownOfALongEmoji) {
    const std::string text = "\u2764\ufe0f\u200d\U0001f525 \ufe0f\u200d";
    VisibleStream stream;
    std::string result;
    for (const char* piece : {"\u2764", "\ufe0f", "\u200d", "\U0001f525", " ", "\ufe0f", "\u200d"}) {
        result += stream.add(piece);
    }
    EXPECT_EQ(result, host::makeVisible(text, host::LineBreaks::Keep));
    EXPECT_EQ(result, "\u2764\ufe0f\u200d\U0001f525 <U+FE0F><U+200D>");
}

TEST(MarkdownStream, ChangesNothingButColours) {
    for (std::size_t size = 1; size < 9; ++size) {
        EXPECT_EQ(removeColours(pass<MarkdownStream>(kAnswer, size)), kAnswer) << size;
    }
}

TEST(MarkdownStream, ColoursAlikeInPiecesOfAnySize) {
    const std::string whole = pass<MarkdownStream>(kAnswer, 10000);
    for (std::size_t size = 1; size < 9; ++size) {
        EXPECT_EQ(pass<MarkdownStream>(kAnswer, size), whole) << size;
    }
}

TEST(MarkdownStream, ColoursHeadingsEmphasisAndCode) {
    EXPECT_EQ(pass<MarkdownStream>("## A\n", 100), "\033[1;4m## A\033[0m\n");
    EXPECT_EQ(pass<MarkdownStream>("a **b** `c`\n", 100), "a \033[1m**b**\033[0m \033[36m`c`\033[0m\n");
}

TEST(MarkdownStream, ColoursTheWordsOfSql) {
    EXPECT_EQ(pass<MarkdownStream>("```sql\nselect 'from', a\n```\n", 100),
              "\033[2m```sql\033[0m\n\033[1;34mselect\033[0m \033[32m'from'\033[0m, a\n\033[2m```\033[0m\n");
}

TEST(MarkdownStream, ColoursCommentsOfSqlAndNoOtherDashes) {
    EXPECT_EQ(pass<MarkdownStream>("```sql\n1 - 2 -- x-y\n-3--\n-\n```\n", 100),
              "\033[2m```sql\033[0m\n1 - 2 \033[2m-- x-y\033[0m\n-3\033[2m--\033[0m\n-\n\033[2m```\033[0m\n");
}

TEST(MarkdownStream, EndsEmphasisThatNobodyCloses) {
    EXPECT_EQ(pass<MarkdownStream>("a **b\nc", 100), "a \033[1m**b\033[0m\nc");
}

}  // namespace
