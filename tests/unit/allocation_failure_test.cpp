#include <gtest/gtest.h>

#include <memory>

#include "assertion_recorder.h"
#include "failing_allocator.h"
#include "kai_assistant_deepseek.h"
#include "kai_assistant_google.h"
#include "kai_assistant_ollama.h"
#include "kai_assistant_openai.h"
#include "kai_message.h"
#include "loopback_server.h"

namespace {

constexpr const char* kStructure =
    R"([{"catalog_name":"c","schemas":[{"schema_name":"s","tables":[{"name":"t","fields":[{"name":"a","type":"int"}],)"
    R"("pkeys":["a"],"fkeys":[{"fields":["a"],"ref_table":"o","ref_fields":["x"]}]}]}]}])";

const std::string kLongText(300, 'x');

/// What a properties object holds, as one text.
std::string describe(KAIAssistantProperties& properties) {
    const kai::AssistantSettings& settings = properties.obtainSettings();
    std::string text = settings.apiHost + "|" + settings.model + "|" + std::to_string(settings.temperature) + "|" +
                       *settings.databaseStructure + "|" + properties.obtainCombinedInstructions() + "|";
    for (const std::string& key : settings.assignedKeys) {
        text += key + ",";
    }
    return text;
}

/// Servers and callers of one provider; plain HTTP where the provider speaks it.
class AllocationFailure : public testing::Test {
protected:
    explicit AllocationFailure(LoopbackTLS tls = LoopbackTLS::Valid)
        : m_server([this](const LoopbackRequest& request) { return answer(request); }, {.tls = tls}) {
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_server.obtainCAFile();
        KAISetHTTPSettings(settings);
    }
    ~AllocationFailure() override { KAISetHTTPSettings(CMRestGlobalSettings()); }

    virtual LoopbackReply answer(const LoopbackRequest& request) {
        if (request.method == "DELETE") {
            return {.body = "{}"};
        }
        if (request.path.ends_with("/runs/run_1")) {
            return {.body = R"({"status":"completed"})"};
        }
        if (request.method == "GET") {
            return {.body = R"({"data":[{"id":"model-of-some-length-1","object":"model","created":1,"created_at":5,)"
                            R"("content":[{"type":"text","text":{"value":"an answer of some length"}}]}]})"};
        }
        return {.body = R"({"id":"run_1","choices":[{"message":{"role":"assistant","content":")" + kLongText +
                        R"("}}],"candidates":[{"content":{"role":"model","parts":[{"text":")" + kLongText +
                        R"("}]}}],"message":{"role":"assistant","content":")" + kLongText + "\"}}"};
    }

    LoopbackServer m_server;
    AssertionRecorder m_recorder;
};

class PlainAllocationFailure : public AllocationFailure {
protected:
    PlainAllocationFailure() : AllocationFailure(LoopbackTLS::Off) {}
};

void setUp(IKAIProperties& properties) {
    properties.setProperty("model", "a-model-name-of-some-length");
    properties.setProperty("user_instructions", kLongText);
    properties.setProperty("system_instructions", CMVariantMap{{"a name of some length", kLongText}});
    properties.setProperty("db_structure", kStructure);
}

/// Fails each allocation of a turn of a conversation, and expects history and properties to be as they were.
void failTurns(IKAIAssistant& assistant) {
    ASSERT_EQ(assistant.setAssistantProperties([](IKAIProperties* properties) { setUp(*properties); }), "");
    auto [rawSession, error] = assistant.createSession();
    ASSERT_EQ(error, "");
    const std::unique_ptr<IKAISession> session(rawSession);
    KAIFreeObject(assistant.addMessage(session.get(), kLongText).first);
    std::string before = session->serializeSession();
    const std::string text(kLongText);
    std::unique_ptr<IKAIMessage> message;
    const std::size_t failures = failEachAllocation(
        [&] { message.reset(assistant.addMessage(session.get(), text).first); },
        [&] { ASSERT_TRUE(session->serializeSession() == before); }, [&] { before = session->serializeSession(); });
    EXPECT_GT(failures, 10U);
    ASSERT_NE(message, nullptr);
    EXPECT_NE(message->obtainSections().at(0)->obtainText(), "");
    EXPECT_EQ(assistant.destroySession(session.get()), "");
}

}  // namespace

TEST_F(AllocationFailure, OfATurnLeavesADeepSeekConversation) {
    KAIAssistant_DEEPSEEK assistant(nullptr, m_server.obtainAuthority(), "key");
    failTurns(assistant);
}

TEST_F(AllocationFailure, OfATurnLeavesAPooledDeepSeekConversation) {
    KAIAssistant_DEEPSEEK assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                    m_server.obtainAuthority(), "key");
    failTurns(assistant);
}

TEST_F(AllocationFailure, OfATurnLeavesAGoogleConversation) {
    KAIAssistant_GOOGLE assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                  m_server.obtainAuthority(), "key");
    failTurns(assistant);
}

TEST_F(PlainAllocationFailure, OfATurnLeavesAnOllamaConversation) {
    KAIAssistant_OLLAMA assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                  m_server.obtainAuthority());
    failTurns(assistant);
}

TEST_F(AllocationFailure, OfATurnLeavesAnOpenAISession) {
    KAIAssistant_OPENAI assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                  m_server.obtainAuthority(), "key");
    failTurns(assistant);
}

TEST_F(AllocationFailure, OfADestructionLeavesAnOpenAIAssistantUsable) {
    KAIAssistant_OPENAI assistant(std::unique_ptr<ICSHTTPPoolCenter>(cfCreateHTTPPoolCenter()),
                                  m_server.obtainAuthority(), "key");
    std::unique_ptr<IKAISession> session;
    const auto begin = [&] {
        ASSERT_EQ(assistant.setAssistantProperties([](IKAIProperties* properties) { setUp(*properties); }), "");
        session.reset(assistant.createSession().first);
        ASSERT_NE(session, nullptr);
    };
    begin();
    const auto end = [&] {
        const bool isGone = assistant.obtainAssistantID().empty();
        EXPECT_EQ(assistant.destroySession(session.get()), isGone ? "Session not found" : "");
        EXPECT_EQ(assistant.obtainAssistantID(), "");
        begin();
    };
    const std::size_t failures = failEachAllocation([&] { assistant.destroySession(session.get()); }, end, begin);
    EXPECT_GT(failures, 10U);
    EXPECT_EQ(assistant.obtainAssistantID(), "");
}

TEST_F(PlainAllocationFailure, OfAModelListIsPassedOn) {
    KAIAssistant_OLLAMA assistant(nullptr, m_server.obtainAuthority());
    const auto list = [&assistant] { assistant.obtainAvailableModels(); };
    EXPECT_GT(failEachAllocation(list, [] {}), 5U);
}

TEST_F(PlainAllocationFailure, OfSettingsLeavesTheAssistantsProperties) {
    KAIAssistant_OLLAMA assistant(nullptr, "host");
    assistant.setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("model", "former");
        properties->setProperty("system_instructions", CMVariantMap{{"former", "instructions"}});
    });
    const auto read = [&assistant] {
        const std::unique_ptr<IKAIProperties> copy(assistant.obtainAssistantProperties());
        return describe(dynamic_cast<KAIAssistantProperties&>(*copy));
    };
    const std::string before = read();
    const std::size_t failures = failEachAllocation(
        [&] { assistant.setAssistantProperties([](IKAIProperties* properties) { setUp(*properties); }); },
        [&] { ASSERT_EQ(read(), before); });
    EXPECT_GT(failures, 10U);
    EXPECT_NE(read(), before);
}

TEST_F(PlainAllocationFailure, OfARestoreLeavesTheAssistantsProperties) {
    KAIAssistantProperties saved;
    setUp(saved);
    saved.setProperty("api_host", "a host name of some length");
    const std::unique_ptr<kai::ChatSession> former =
        kai::obtainOllamaProtocol().createSession(saved, kai::obtainOllamaProtocol());
    former->obtainHistory()->appendMessage(KAI_ROLE_USER, kLongText);
    const std::string text = former->serializeSession();
    KAIAssistant_OLLAMA assistant(nullptr, "host");
    const auto read = [&assistant] {
        const std::unique_ptr<IKAIProperties> copy(assistant.obtainAssistantProperties());
        return describe(dynamic_cast<KAIAssistantProperties&>(*copy));
    };
    const std::string before = read();
    std::unique_ptr<IKAISession> session;
    const std::size_t failures = failEachAllocation([&] { session.reset(assistant.restoreSession(text).first); },
                                                    [&] { ASSERT_EQ(read(), before); });
    EXPECT_GT(failures, 10U);
    ASSERT_NE(session, nullptr);
    EXPECT_NE(session->serializeSession().find(kLongText), std::string::npos);
}

TEST_F(PlainAllocationFailure, OfARestoreToTheDefaultHostLeavesTheAssistantsProperties) {
    // Both default hosts are too long for a string's own buffer.
    KAIAssistant_DEEPSEEK deepSeek(nullptr, "host", "key");
    KAIAssistant_GOOGLE google(nullptr, "host", "key");
    const std::string text = R"({"api_host":"","model":"restored"})";
    for (const auto& [assistant, defaultHost] :
         {std::pair<IKAIAssistant*, std::string>(&deepSeek, "api.deepseek.com"),
          std::pair<IKAIAssistant*, std::string>(&google, "generativelanguage.googleapis.com")}) {
        const auto read = [assistant = assistant] {
            const std::unique_ptr<IKAIProperties> copy(assistant->obtainAssistantProperties());
            return describe(dynamic_cast<KAIAssistantProperties&>(*copy));
        };
        const std::string before = read();
        std::unique_ptr<IKAISession> session;
        const auto restore = [&, assistant = assistant] { session.reset(assistant->restoreSession(text).first); };
        EXPECT_GT(failEachAllocation(restore, [&] { ASSERT_EQ(read(), before); }), 5U);
        ASSERT_NE(session, nullptr);
        EXPECT_TRUE(read().starts_with(defaultHost + "|restored|")) << read();
    }
}

TEST_F(PlainAllocationFailure, OfARestoreLeavesAnOpenAIAssistant) {
    KAIAssistant_OPENAI assistant(nullptr, "host", "key");
    auto& properties = dynamic_cast<KAIAssistantProperties_OPENAI&>(*assistant.obtainAssistantProperties());
    const std::string before = describe(properties);
    const std::string text = R"({"assistant_id":"an identifier of some length","thread_id":"a thread of some length",)"
                             R"("model":"a-model-name-of-some-length","name":"a name of more than a few letters"})";
    std::unique_ptr<IKAISession> session;
    failEachAllocation([&] { session.reset(assistant.restoreSession(text).first); },
                       [&] {
                           ASSERT_EQ(describe(properties), before);
                           ASSERT_EQ(properties.obtainSettings().name, "Keltrix Assistant");
                           ASSERT_EQ(assistant.obtainAssistantID(), "");
                       });
    ASSERT_NE(session, nullptr);
}

TEST_F(PlainAllocationFailure, OfAPropertyLeavesEveryValueAsItWas) {
    const CMVariantMap instructions{{"a name of some length 1", kLongText}, {"a name of some length 2", ""}};
    const CMVariantMap catalog{{"schemas", CMVariantList{CMVariantMap{{"schema_name", "a schema of some length"}}}}};
    const std::pair<const char*, CMVariant> cases[] = {
        {"api_host", kLongText},          {"model", kLongText},
        {"user_instructions", kLongText}, {"system_instructions", instructions},
        {"db_structure", kStructure},     {"db_structure", CMVariantList{catalog}},
    };
    for (const auto& [key, value] : cases) {
        KAIAssistantProperties properties;
        setUp(properties);
        properties.setProperty("api_host", "former");
        const std::string before = describe(properties);
        const std::string keyText = key;
        failEachAllocation([&, &value = value] { ASSERT_TRUE(properties.setProperty(keyText, value)); },
                           [&] { ASSERT_EQ(describe(properties), before) << keyText; });
    }
}

TEST_F(PlainAllocationFailure, OfWrittenInstructionsLeavesThemToBeWrittenAgain) {
    KAIAssistantProperties properties;
    setUp(properties);
    const std::string before = describe(properties);
    std::shared_ptr<const std::string> written;
    const std::size_t failures = failEachAllocation([&] { written = properties.obtainWrittenInstructions(); },
                                                    [&] { ASSERT_EQ(describe(properties), before); },
                                                    [&] { properties.setProperty("user_instructions", kLongText); });
    EXPECT_GT(failures, 3U);
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(COJson("[" + *written + "]").obtainRoot().obtainSize(), 1U);
    EXPECT_EQ(properties.obtainWrittenInstructions(), written);
}

TEST_F(PlainAllocationFailure, OfWhatIsTakenOverOrCopiedLeavesTheTarget) {
    KAIAssistantProperties_OPENAI source;
    setUp(source);
    KAIAssistantProperties_OPENAI target;
    const std::string before = describe(target);
    failEachAllocation(
        [&] { target.changeSettings([&](kai::AssistantSettings& settings) { source.takeOverAssigned(settings); }); },
        [&] { ASSERT_EQ(describe(target), before); });
    EXPECT_EQ(target.obtainCombinedInstructions(), source.obtainCombinedInstructions());
    // Key by key: what was copied before the failure stays, and the copy can be made again.
    KAIAssistantProperties_OPENAI copied;
    failEachAllocation([&] { source.copyAssignedProperties(copied); }, [] {});
    EXPECT_EQ(copied.obtainCombinedInstructions(), source.obtainCombinedInstructions());
}

TEST_F(PlainAllocationFailure, OfACreationFreesWhatWasMadeAndThePoolWithIt) {
    struct CountedPool : ICSHTTPPoolCenter {
        explicit CountedPool(int& count) : destroyed(count) {}
        ~CountedPool() override { ++destroyed; }
        int& destroyed;
    };
    for (const KAIAssistantType type :
         {KAIAssistantType::OPENAI, KAIAssistantType::GOOGLE, KAIAssistantType::DEEPSEEK, KAIAssistantType::OLLAMA}) {
        const std::string key = kLongText;
        const std::string host = "a host name of some length.example";
        int destroyed = 0;
        int made = 0;
        CountedPool* pool = nullptr;
        IKAIAssistant* assistant = nullptr;
        std::ptrdiff_t live = 0;
        // What a provider makes once in the process is no leak.
        KAIFreeObject(KAICreateAssistant(type, nullptr, key, host));
        pool = new CountedPool(destroyed);
        failEachAllocation(
            [&] {
                live = countLiveAllocations();
                assistant = KAICreateAssistant(type, pool, key, host);
            },
            [&] {
                EXPECT_EQ(destroyed, ++made) << "the half-built assistant takes its pool with it";
                EXPECT_LT(countLiveAllocations(), live) << "nothing else is left, and the pool is gone";
                pool = new CountedPool(destroyed);
            });
        ASSERT_NE(assistant, nullptr);
        KAIFreeObject(assistant);
        EXPECT_EQ(destroyed, made + 1);
    }
}
