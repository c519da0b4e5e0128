#include <gtest/gtest.h>

#include "cf/utilities.h"
#include "chat_fixture.h"

namespace {

using ChatLimits = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS(ChatLimits);

using ChatPieces = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS_THAT(ChatPieces, provider.writeReplyOfPieces != nullptr);

const std::string kReplacement = "\xef\xbf\xbd";

bool isModelInPath() {
    return ChatContract::GetParam().isModelInPath;
}

std::string obtainOddTarget(const std::string& model) {
    const ChatProvider& provider = ChatContract::GetParam();
    for (const auto& [odd, target] : provider.oddTargets) {
        if (odd == model) {
            return target;
        }
    }
    return provider.chatPath(model) + provider.obtainQuery();
}

}  // namespace

TEST_P(ChatLimits, LetAReplyOfTenMegabytesThrough) {
    const SessionHandle session = createSession();
    const std::string text(10 * 1024 * 1024, 'x');
    answerText(text);
    EXPECT_EQ(say(*session, "q1").text, text);
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q1"}, {1, text}, {0, "q2"}}}));
}

TEST_P(ChatPieces, AreJoinedWithNothingBetween) {
    const SessionHandle session = createSession();
    answerBody(GetParam().writeReplyOfPieces(3, "\"ab\""));
    EXPECT_EQ(say(*session, "q").text, "ababab");
    converse(*session, "q2", "a2");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q"}, {1, "ababab"}, {0, "q2"}}}));
}

TEST_P(ChatPieces, OfAReplyMayBeTenThousand) {
    const SessionHandle session = createSession();
    answerBody(GetParam().writeReplyOfPieces(10'000, R"("\u00e9\n")"));
    const std::string text = say(*session, "q").text;
    ASSERT_EQ(text.size(), 30'000U);
    EXPECT_EQ(text.substr(29'994), "\xc3\xa9\n\xc3\xa9\n");
}

TEST_P(ChatLimits, LetAUserTextOfTwoMegabytesThrough) {
    const SessionHandle session = createSession();
    const std::string text(2 * 1024 * 1024, 'y');
    converse(*session, text, "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, text}}}));
    EXPECT_EQ(m_server.countRequests(), 1U);
}

TEST_P(ChatLimits, RefuseAReplyNestedDeeperThan512Levels) {
    const SessionHandle session = createSession();
    const std::string reply = GetParam().writeReply("\"a\"");
    const auto nest = [&reply](std::size_t levels) {
        // The object around it is a level of its own.
        return R"({"x":)" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "," + reply.substr(1);
    };
    answerBody(nest(512));
    EXPECT_EQ(say(*session, "q").text, "a");
    for (const std::size_t levels : {std::size_t{513}, std::size_t{1'000'000}}) {
        answerBody(nest(levels));
        EXPECT_EQ(say(*session, "q").error, "Invalid response" + GetParam().invalidSuffix("m"));
    }
}

TEST_P(ChatLimits, SendAModelNameInTheBodyAsItIsAndInThePathUnencoded) {
    const std::string model = "vendor/model-1.5:latest";
    const AssistantHandle assistant = createAssistant("secret", model);
    const SessionHandle session = createSession(*assistant);
    answerText("a");
    EXPECT_EQ(say(*assistant, *session, "q").text, "a");
    EXPECT_EQ(obtainLastRequest().target, obtainTarget(GetParam().chatPath(model)));
    EXPECT_EQ(obtainLastRequest().body, writeBody({.model = model, .messages = {{0, "q"}}}));
}

TEST_P(ChatLimits, SendAModelNameOfCharactersThatMeanSomethingInAURLAsItIs) {
    for (const char* model : {"a?b=c", "a#b", "a%2fb", "a%", "../models", "//", "&key=x", "a@b", "{model}x{model}"}) {
        const AssistantHandle assistant = createAssistant("secret", model);
        const SessionHandle session = createSession(*assistant);
        answerText("a");
        EXPECT_EQ(say(*assistant, *session, "q").text, "a") << model;
        EXPECT_EQ(obtainLastRequest().body, writeBody({.model = model, .messages = {{0, "q"}}}));
        EXPECT_EQ(obtainLastRequest().target, obtainOddTarget(model));
        answerBody("{}");
        EXPECT_EQ(say(*assistant, *session, "q").error,
                  "Unsupported data format" + GetParam().unsupportedSuffix(model));
    }
}

TEST_P(ChatLimits, RequestNoPathWithABlankInIt) {
    const AssistantHandle assistant = createAssistant("secret", "a b");
    const SessionHandle session = createSession(*assistant);
    answerText("a");
    const ChatAnswer result = say(*assistant, *session, "q");
    EXPECT_EQ(result.text, isModelInPath() ? "" : "a");
    EXPECT_EQ(m_server.countRequests(), isModelInPath() ? 0U : 1U);
}

TEST_P(ChatLimits, SendNoRequestWithALineBreakInItsPath) {
    const AssistantHandle assistant = createAssistant("secret", "a\r\nHost: other");
    const SessionHandle session = createSession(*assistant);
    answerText("a");
    const ChatAnswer result = say(*assistant, *session, "q");
    if (isModelInPath()) {
        EXPECT_NE(result.error, "");
        EXPECT_EQ(m_server.countRequests(), 0U);
    } else {
        EXPECT_EQ(result.text, "a");
    }
}

TEST_P(ChatLimits, SendAKeyOfAnyCharactersTheProvidersWay) {
    for (const char* key : {"", "  a b&c=d/+", "{key}{model}", "\xc3\xa9"}) {
        const AssistantHandle assistant = createAssistant(key);
        const SessionHandle session = createSession(*assistant);
        answerText("a");
        EXPECT_EQ(say(*assistant, *session, "q").text, "a");
        const LoopbackRequest request = obtainLastRequest();
        EXPECT_EQ(request.target, GetParam().chatPath("m") + GetParam().obtainQuery(key));
        // Blanks at the ends are not part of a header's value.
        const std::string sent = GetParam().obtainKeyHeader(key).value_or("");
        const std::string* header = request.findHeader(GetParam().keyHeader);
        EXPECT_EQ(header != nullptr ? *header : "", cfTrimAsString(sent)) << key;
    }
}

TEST_P(ChatLimits, NeverSendALineBreakOfAKeyInAHeader) {
    const std::string key = "secret\r\nX-Injected: 1";
    const AssistantHandle assistant = createAssistant(key);
    const SessionHandle session = createSession(*assistant);
    answerText("a");
    const ChatAnswer result = say(*assistant, *session, "q");
    if (!GetParam().keyHeader.empty()) {
        EXPECT_NE(result.error, "");
        EXPECT_EQ(result.error.find("secret"), std::string::npos);
        EXPECT_NE(assistant->obtainAvailableModels().second, "");
        EXPECT_EQ(m_server.countRequests(), 0U);
        return;
    }
    EXPECT_EQ(result.text, "a");
    EXPECT_EQ(obtainLastRequest().findHeader("X-Injected"), nullptr);
    EXPECT_EQ(obtainLastRequest().target, GetParam().chatPath("m") + GetParam().obtainQuery(key));
}

TEST_P(ChatLimits, ReplaceIllFormedTextInRequestsAndSessionTexts) {
    set("model", "m\xff");
    if (isModelInPath()) {
        set("model", "m");
    }
    set("user_instructions", "\xc3(");
    const SessionHandle session = createSession();
    converse(*session, "a\xe2\x82z\xed\xa0\x80", "reply");
    // A truncated sequence counts as one; each byte of an encoded surrogate as one of its own.
    const std::string replaced = "a" + kReplacement + "z" + kReplacement + kReplacement + kReplacement;
    const std::string model = isModelInPath() ? "m" : "m" + kReplacement;
    EXPECT_EQ(obtainLastRequest().body,
              writeBody({.model = model, .instructions = kReplacement + "(\n\n", .messages = {{0, replaced}}}));
    const std::string text = session->serializeSession();
    EXPECT_NE(text.find(R"({"role":"user","content":")" + replaced + "\"}"), std::string::npos) << text;
    const SessionHandle restored = restoreSession(*m_assistant, text);
    converse(*restored, "q2", "a2");
    EXPECT_NE(obtainLastRequest().body.find(replaced), std::string::npos);
}

TEST_P(ChatLimits, ReplaceWhatIsNoCharacterInAReply) {
    const SessionHandle session = createSession();
    answerBody(GetParam().writeReply("\"a\\ud83d b\xff\""));
    EXPECT_EQ(say(*session, "q").text, "a" + kReplacement + " b" + kReplacement);
}

TEST_P(ChatLimits, ReplaceWhatIsNoCharacterInASessionText) {
    const SessionHandle session = restoreSession(*m_assistant,
                                                 "{\"messages\":[{\"role\":\"user\",\"content\":\"a\\udc00\"},"
                                                 "{\"role\":\"assistant\",\"content\":\"b\xed\xa0\x80\"}]}");
    const std::string text = session->serializeSession();
    EXPECT_NE(text.find("\"a" + kReplacement + "\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"b" + kReplacement + kReplacement + kReplacement + "\""), std::string::npos) << text;
}

TEST_P(ChatLimits, ReplaceWhatIsNoCharacterInAStructure) {
    set("db_structure",
        "[{\"schemas\":[{\"tables\":[{\"name\":\"t\\ud800\",\"fields\":[{\"name\":\"\xff\","
        "\"type\":\"int\"}]}]}]}]");
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    const std::string statement = "CREATE TABLE `t" + kReplacement + "` (`" + kReplacement + "` int)";
    EXPECT_NE(obtainLastRequest().body.find(statement), std::string::npos) << obtainLastRequest().body;
}

TEST_P(ChatLimits, EscapeNULAndControlCharactersOfAUserText) {
    const SessionHandle session = createSession();
    converse(*session, std::string("a\0b\x01\x1f\x7f\t", 7), "reply");
    const std::string body = obtainLastRequest().body;
    EXPECT_NE(body.find("\"a\\u0000b\\u0001\\u001f\x7f\\t\""), std::string::npos) << body;
}

TEST_P(ChatLimits, GiveNULAndControlCharactersOfAReplyBack) {
    const SessionHandle session = createSession();
    answerBody(GetParam().writeReply(R"("a\u0000b\u001f\ud83d\ude00")"));
    EXPECT_EQ(say(*session, "q").text, std::string("a\0b\x1f\xf0\x9f\x98\x80", 8));
}

TEST_P(ChatLimits, KeepIllFormedNamesOfADatabaseOutOfTheRequest) {
    // Given as a list, names need not be UTF-8; they are replaced when the JSON text is made from them.
    const CMVariantMap field{{"name", "\xff"}, {"type", std::string("i\0t", 3)}};
    const CMVariantMap table{{"name", "t`\xc3"}, {"fields", CMVariantList{field}}};
    set("db_structure",
        CMVariantList{CMVariantMap{{"schemas", CMVariantList{CMVariantMap{{"tables", CMVariantList{table}}}}}}});
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    const std::string statement = "CREATE TABLE `t`" + kReplacement + "` (`" + kReplacement + "` i\\u0000t)\\n\\n";
    EXPECT_NE(obtainLastRequest().body.find(statement), std::string::npos) << obtainLastRequest().body;
}
