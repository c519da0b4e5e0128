#include <gtest/gtest.h>

#include <stdexcept>

#include "chat_fixture.h"

namespace {

using ChatProperties = ChatContract;
INSTANTIATE_FOR_CHAT_PROVIDERS(ChatProperties);

}  // namespace

TEST_P(ChatProperties, StartWithTheDefaultHostForABlankOne) {
    for (const char* host : {"", " ", " \t\r\n\v\f"}) {
        const AssistantHandle assistant(KAICreateAssistant(GetParam().type, nullptr, "secret", host));
        EXPECT_EQ(get(*assistant, "api_host").stringValue(), GetParam().defaultHost);
    }
}

TEST_P(ChatProperties, StartWithTheGivenHostTrimmed) {
    const AssistantHandle assistant(KAICreateAssistant(GetParam().type, nullptr, "secret", "\t example.com:81/x \n"));
    EXPECT_EQ(get(*assistant, "api_host").stringValue(), "example.com:81/x");
    EXPECT_EQ(get(*assistant, "model").stringValue(), "");
    EXPECT_EQ(get(*assistant, "temperature").doubleValue(), 1.0);
    EXPECT_EQ(get(*assistant, "combined_instructions").stringValue(), "");
}

TEST_P(ChatProperties, AreHandedOutAsIndependentCopies) {
    const PropertiesHandle first(m_assistant->obtainAssistantProperties());
    const PropertiesHandle second(m_assistant->obtainAssistantProperties());
    ASSERT_NE(first.get(), second.get());
    EXPECT_TRUE(first->setProperty("model", "changed"));
    EXPECT_EQ(second->obtainProperty("model").stringValue(), "m");
    EXPECT_EQ(get(*m_assistant, "model").stringValue(), "m");
    set("model", "later");
    EXPECT_EQ(first->obtainProperty("model").stringValue(), "changed");
}

TEST_P(ChatProperties, OutliveTheAssistantAsACopy) {
    const PropertiesHandle copy(m_assistant->obtainAssistantProperties());
    m_assistant.reset();
    EXPECT_EQ(copy->obtainProperty("model").stringValue(), "m");
    EXPECT_EQ(copy->obtainPropertyDescriptions().size(), 7U);
}

TEST_P(ChatProperties, AreFilledInAFreshObject) {
    set("user_instructions", "U");
    int calls = 0;
    EXPECT_EQ(m_assistant->setAssistantProperties([&](IKAIProperties* properties) {
        ++calls;
        EXPECT_EQ(properties->obtainProperty("model").stringValue(), "");
        EXPECT_EQ(properties->obtainProperty("api_host").stringValue(), "");
        EXPECT_EQ(properties->obtainProperty("user_instructions").stringValue(), "");
        EXPECT_EQ(properties->obtainProperty("temperature").doubleValue(), 1.0);
    }),
              "");
    EXPECT_EQ(calls, 1);
}

TEST_P(ChatProperties, KeepTheirValuesForAnEmptyFunctionAndForKeysNotAssigned) {
    set("user_instructions", "U");
    EXPECT_EQ(m_assistant->setAssistantProperties({}), "");
    set("model", "other");
    EXPECT_EQ(get(*m_assistant, "user_instructions").stringValue(), "U");
    EXPECT_EQ(get(*m_assistant, "api_host").stringValue(), m_server.obtainAuthority());
}

TEST_P(ChatProperties, ClampTheTemperatureToWhatTheServiceTakes) {
    const SessionHandle session = createSession();
    const std::string highest = GetParam().highestTemperature;
    const std::pair<std::string, std::string> cases[] = {
        {"3.5", highest}, {"2.0000001", highest}, {highest, highest}, {"-1", "0"},
        {"0", "0"},       {"0.2", "0.2"},         {"1e300", highest}, {highest + ".01", highest}};
    ExpectedTurn expected;
    for (const auto& [given, sent] : cases) {
        set("temperature", given);
        EXPECT_EQ(get(*m_assistant, "temperature").stringValue(), sent) << given;
        expected.temperature = sent;
        expected.messages.emplace_back(0, "q");
        converse(*session, "q", "a");
        EXPECT_EQ(obtainLastRequest().body, writeBody(expected));
        expected.messages.emplace_back(1, "a");
    }
}

TEST_P(ChatProperties, NeverSendATemperatureThatIsNotFinite) {
    const SessionHandle session = createSession();
    ExpectedTurn expected{.temperature = "0"};
    for (const char* text : {"nan", "inf", "-inf", "1e999", "warm"}) {
        set("temperature", text);
        expected.messages.emplace_back(0, "q");
        converse(*session, "q", "a");
        EXPECT_EQ(obtainLastRequest().body, writeBody(expected)) << text;
        expected.messages.emplace_back(1, "a");
    }
}

TEST_P(ChatProperties, SendNoTemperatureUntilItIsAssigned) {
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.messages = {{0, "q"}}}));
    EXPECT_EQ(obtainLastRequest().body.find("temperature"), std::string::npos);
}

TEST_P(ChatProperties, TakeTheDefaultOverWhereTheFreshObjectRefusedAValue) {
    set("temperature", "0.5");
    set("temperature", 0.7);
    EXPECT_EQ(get(*m_assistant, "temperature").doubleValue(), 1.0);
    set("user_instructions", "U");
    set("user_instructions", 1.0);
    EXPECT_EQ(get(*m_assistant, "user_instructions").stringValue(), "");
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    EXPECT_EQ(obtainLastRequest().body, writeBody({.temperature = "1", .messages = {{0, "q"}}}));
}

TEST_P(ChatProperties, EmptyTheStructureForAnIgnoredValueOfAnotherType) {
    const std::string structure = R"([{"catalog_name":"c","schemas":[]}])";
    for (const CMVariant& ignored : {CMVariant(), CMVariant(1.0), CMVariant(CMVariantMap{{"catalog_name", "d"}})}) {
        set("db_structure", structure);
        ASSERT_EQ(get(*m_assistant, "db_structure").listValue().size(), 1U);
        EXPECT_EQ(m_assistant->setAssistantProperties([&](IKAIProperties* properties) {
            EXPECT_TRUE(properties->setProperty("db_structure", ignored)) << "ignored, not refused";
        }),
                  "");
        EXPECT_TRUE(get(*m_assistant, "db_structure").listValue().empty());
        EXPECT_EQ(get(*m_assistant, "combined_instructions").stringValue(), "");
    }
}

TEST_P(ChatProperties, KeepTheStructureOfACopyForAnIgnoredValueOfAnotherType) {
    set("db_structure", R"([{"catalog_name":"c","schemas":[]}])");
    const PropertiesHandle copy(m_assistant->obtainAssistantProperties());
    EXPECT_TRUE(copy->setProperty("db_structure", 1.0));
    EXPECT_EQ(copy->obtainProperty("db_structure").listValue().size(), 1U);
}

TEST_P(ChatProperties, ReplaceTheSystemInstructionsAsAWhole) {
    set("system_instructions", CMVariantMap{{"a", "A"}, {"b", "B"}});
    set("system_instructions", CMVariantMap{{"b", "other"}});
    EXPECT_EQ(get(*m_assistant, "combined_instructions").stringValue(), "other\n");
}

TEST_P(ChatProperties, GetTheDefaultHostForABlankOne) {
    set("api_host", "example.com");
    set("api_host", " \t ");
    EXPECT_EQ(get(*m_assistant, "api_host").stringValue(), GetParam().defaultHost);
}

TEST_P(ChatProperties, IgnoreKeysThatAreNotTheirs) {
    EXPECT_EQ(m_assistant->setAssistantProperties([](IKAIProperties* properties) {
        EXPECT_FALSE(properties->setProperty("name", "N"));
        EXPECT_FALSE(properties->setProperty("unknown", "x"));
    }),
              "");
    EXPECT_EQ(get(*m_assistant, "name").getValueType(), CMVariant::ValueType::Null);
    EXPECT_EQ(get(*m_assistant, "model").stringValue(), "m");
}

TEST_P(ChatProperties, StayAsTheyWereWhenTheHostsFunctionThrows) {
    EXPECT_THROW(m_assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("model", "half");
        throw std::runtime_error("from the host");
    }),
                 std::runtime_error);
    EXPECT_EQ(get(*m_assistant, "model").stringValue(), "m");
}

TEST_P(ChatProperties, MayBeSetWhileTheHostReadsTheAssistantsOwn) {
    EXPECT_EQ(m_assistant->setAssistantProperties([this](IKAIProperties* properties) {
        const std::string model = get(*m_assistant, "model").stringValue();
        set("user_instructions", "nested");
        properties->setProperty("model", model + "2");
    }),
              "");
    EXPECT_EQ(get(*m_assistant, "model").stringValue(), "m2");
    EXPECT_EQ(get(*m_assistant, "user_instructions").stringValue(), "nested");
}

TEST_P(ChatProperties, SendInstructionsMadeOfAllTheirParts) {
    set("user_instructions", "Answer in SQL.");
    set("system_instructions", CMVariantMap{{"2", "Second."}, {"1", "First."}});
    set("db_structure", R"([{"catalog_name":"c","schemas":[{"schema_name":"s","tables":[)"
                        R"({"name":"t","fields":[{"name":"a","type":"int"}],"pkeys":["a"]}]}]}])");
    const SessionHandle session = createSession();
    converse(*session, "q", "a");
    const std::string instructions =
        "Answer in SQL.\n\nFirst.\nSecond.\nUSE CATALOG `c`\nCREATE TABLE `s`.`t` (`a` int, PRIMARY KEY(`a`))\n\n";
    EXPECT_EQ(obtainLastRequest().body, writeBody({.instructions = instructions, .messages = {{0, "q"}}}));
}
