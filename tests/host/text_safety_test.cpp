#include "terminal/text_safety.h"

#include <gtest/gtest.h>

#include "terminal/secret_text.h"

namespace {

using host::LineBreaks;

TEST(TextSafety, ShowsControlCharactersAsPictures) {
    EXPECT_EQ(host::makeVisible("a\x1b[31mb\x07", LineBreaks::Keep), "a\u241b[31mb\u2407");
    EXPECT_EQ(host::makeVisible(std::string_view("\0\x7f", 2), LineBreaks::Keep), "\u2400\u2421");
}

TEST(TextSafety, ShowsC1ControlsInBothSpellings) {
    EXPECT_EQ(host::makeVisible("\u009b31m", LineBreaks::Keep), "<U+009B>31m");
    // The single byte 0x9B is no UTF-8; an 8-bit terminal would take it for CSI.
    EXPECT_EQ(host::makeVisible("\x9b"
                                "31m",
                                LineBreaks::Keep),
              "\ufffd31m");
}

TEST(TextSafety, ShowsCharactersThatReorderText) {
    EXPECT_EQ(host::makeVisible("a\u202eb\u2066c\u200fd\u2028e", LineBreaks::Keep),
              "a<U+202E>b<U+2066>c<U+200F>d<U+2028>e");
}

TEST(TextSafety, ShowsCharactersThatNobodySees) {
    EXPECT_EQ(host::makeVisible("a\u200bb\u00adc\u2060d\u3164e\U000E0041f", LineBreaks::Keep),
              "a<U+200B>b<U+00AD>c<U+2060>d<U+3164>e<U+E0041>f");
    EXPECT_EQ(host::makeVisible("pay\u200dment \u200c", LineBreaks::Keep), "pay<U+200D>ment <U+200C>");
    EXPECT_EQ(host::makeOneLine("a\u200bb"), "a<U+200B>b");
}

TEST(TextSafety, KeepsJoinersAndSelectorsThatShapeTheCharacterBefore) {
    const std::string text = "می\u200cخواهم क\u094d\u200dष 👩\u200d💻 ❤\ufe0f\u200d🔥 1\ufe0f\u20e3";
    EXPECT_EQ(host::makeVisible(text, LineBreaks::Keep), text);
}

TEST(TextSafety, ShowsAJoinerBehindAHiddenCharacter) {
    EXPECT_EQ(host::makeVisible("\ufe0f\u200d", host::LineBreaks::Show), "<U+FE0F><U+200D>");
    EXPECT_EQ(host::makeOneLine("\ufe0f\u200d"), "<U+FE0F><U+200D>");
}

TEST(TextSafety, TakesTheHiddenSecretOutBeforeItAbbreviates) {
    host::setHiddenSecret("sk-0123456789");
    EXPECT_EQ(host::makeOneLine("key sk-0123456789 is wrong", 12), "key *** is \u2026");
    EXPECT_EQ(host::makeVisible("key sk-0123456789", LineBreaks::Show), "key ***");
    host::setHiddenSecret("");
    EXPECT_EQ(host::makeOneLine("key sk-0123456789 is wrong", 12), "key sk-0123\u2026");
}

TEST(TextSafety, KeepsLineEndsAndTabsOfRunningText) {
    EXPECT_EQ(host::makeVisible("a\tb\r\nc\n", LineBreaks::Keep), "a\tb\nc\n");
}

TEST(TextSafety, ShowsALoneCarriageReturn) {
    EXPECT_EQ(host::makeVisible("safe\rfake", LineBreaks::Keep), "safe\u240dfake");
}

TEST(TextSafety, ShowsLineEndsAndTabsInCells) {
    EXPECT_EQ(host::makeVisible("a\tb\r\nc", LineBreaks::Show), "a\u2409b\u240d\u240ac");
}

TEST(TextSafety, ReplacesIllFormedUtf8) {
    EXPECT_EQ(host::makeVisible("a\xff"
                                "b",
                                LineBreaks::Keep),
              "a\ufffdb");
    EXPECT_EQ(host::makeVisible("\xc0\x80", LineBreaks::Keep), "\ufffd\ufffd");            // overlong
    EXPECT_EQ(host::makeVisible("\xed\xa0\x80", LineBreaks::Keep), "\ufffd\ufffd\ufffd");  // a surrogate
    EXPECT_EQ(host::makeVisible("\xf4\x90\x80\x80", LineBreaks::Keep), "\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(host::makeVisible("\xe2\x82", LineBreaks::Keep), "\ufffd");  // cut off
}

TEST(TextSafety, KeepsWellFormedText) {
    const std::string text = "Łódź 東京 🚲 \U0010FFFD";
    EXPECT_EQ(host::makeVisible(text, LineBreaks::Keep), text);
}

TEST(TextSafety, MakesOneLineOfSeveral) {
    EXPECT_EQ(host::makeOneLine("  <html>\r\n\t<body>\n\nno  \n"), "<html> <body> no");
    EXPECT_EQ(host::makeOneLine("a\x1b[2Jb"), "a\u241b[2Jb");
    EXPECT_EQ(host::makeOneLine(" \n "), "");
}

TEST(TextSafety, AbbreviatesALongLine) {
    EXPECT_EQ(host::makeOneLine(std::string(600, 'x'), 10), "xxxxxxxxx\u2026");
    EXPECT_EQ(host::makeOneLine("exactly 10", 10), "exactly 10");
}

TEST(TextSafety, MeasuresWideAndCombiningCharacters) {
    EXPECT_EQ(host::measureColumns("abc"), 3U);
    EXPECT_EQ(host::measureColumns("Łódź"), 4U);
    EXPECT_EQ(host::measureColumns("東京"), 4U);
    EXPECT_EQ(host::measureColumns("e\u0301"), 1U);
    EXPECT_EQ(host::measureColumns("\u241b"), 1U);
}

TEST(TextSafety, NeverCutsAWideCharacterInHalf) {
    EXPECT_EQ(host::abbreviateToColumns("東京都", 6), "東京都");
    EXPECT_EQ(host::abbreviateToColumns("東京都", 5), "東京\u2026");
    EXPECT_EQ(host::abbreviateToColumns("東京都", 4), "東\u2026");
    EXPECT_EQ(host::abbreviateToColumns("東京都", 1), "\u2026");
}

}  // namespace
