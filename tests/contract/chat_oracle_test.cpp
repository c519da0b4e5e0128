#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <utility>

#include "cf/assertion.h"
#include "cf/stream.h"
#include "chat_fixture.h"

// Random conversations against a slow reference, which keeps plain texts alone and computes every body anew from them.

namespace {

/// A description of a database, and the statements in the instructions.
struct Structure {
    const char* json;
    const char* statements;
};

constexpr Structure kStructures[] = {
    {R"([{"schemas":[{"tables":[{"name":"t","fields":[{"name":"a","type":"int"}]}]}]}])",
     "CREATE TABLE `t` (`a` int)\n\n"},
    {R"([{"catalog_name":"c","schemas":[{"schema_name":"s","tables":[{"name":"\"q\"","fields":[]}]}]}])",
     "USE CATALOG `c`\nCREATE TABLE `s`.`\"q\"` ()\n\n"},
    // Malformed in one place, which is reported at every turn and left out.
    {R"([7,{"schemas":[{"tables":[{"name":"u","fields":[{"name":"b","type":"text"}]}]}]}])",
     "CREATE TABLE `u` (`b` text)\n\n"},
};

/// What an assistant's settings are, in the plainest form.
struct Settings {
    std::string model = "m";
    std::string temperature{};  ///< as it stands in the body; empty: never assigned
    std::string userInstructions{};
    std::map<std::string, std::string> systemInstructions{};
    const Structure* structure = nullptr;

    [[nodiscard]] std::string combine() const {
        std::string text = userInstructions.empty() ? "" : userInstructions + "\n\n";
        for (const auto& [name, instruction] : systemInstructions) {
            text += instruction + "\n";
        }
        return text + (structure != nullptr ? structure->statements : "");
    }
};

using Messages = std::vector<std::pair<std::int32_t, std::string>>;

int s_reports = 0;

class ChatOracle : public ChatContract {
protected:
    struct Conversation {
        SessionHandle session;
        Messages messages;
    };
    /// A session's text, and what stands in it.
    struct Saved {
        std::string text;
        Settings settings;
        Messages messages;
    };

    ChatOracle() {
        cfSetAssertionHandler([](const char*, const char*, int) { ++s_reports; });
        answer([this](const LoopbackRequest& request) {
            const std::lock_guard lock(m_repliesMutex);
            return m_replies.at(findMark(request.body));
        });
        begin();
    }

    /// Each user's text ends in a mark of its own: what is answered is known before anything is sent.
    static std::string findMark(const std::string& body) {
        const std::size_t start = body.rfind('#');
        return body.substr(start, body.find('$', start) - start);
    }

    std::size_t choose(std::size_t count) { return m_random() % count; }

    std::string makeText() {
        static const char* const parts[] = {"select ",      "\"quoted\" ",      "\n",   "\t\\ ", "\xc3\xa9t\xc3\xa9 ",
                                            "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\x01", "/",     "\xff"};
        std::string text;
        for (std::size_t count = choose(12); count > 0; --count) {
            text += parts[choose(std::size(parts))];
        }
        return choose(20) == 0 ? text + std::string(70'000, 'x') : text;
    }

    static std::string replaceIllFormed(std::string text) {
        for (std::size_t place = text.find('\xff'); place != std::string::npos; place = text.find('\xff', place)) {
            text.replace(place, 1, "\xef\xbf\xbd");
        }
        return text;
    }

    void begin() { m_conversations.push_back({createSession(), {}}); }

    void change() {
        switch (choose(5)) {
            case 0:
                m_settings.model = "model-" + std::to_string(choose(9));
                return set("model", m_settings.model);
            case 1:
                m_settings.temperature = choose(2) == 0 ? "0.25" : "1";
                return set("temperature", m_settings.temperature);
            case 2:
                m_settings.userInstructions = makeText();
                return set("user_instructions", m_settings.userInstructions);
            case 3: {
                m_settings.systemInstructions.clear();
                CMVariantMap map;
                for (const char* name : {"a", "b"}) {
                    map[name] = m_settings.systemInstructions[name] = "S" + makeText();
                }
                return set("system_instructions", map);
            }
            default:
                m_settings.structure = &kStructures[choose(std::size(kStructures))];
                return set("db_structure", m_settings.structure->json);
        }
    }

    /// A turn; while it waits perhaps something else happens, and perhaps it fails.
    void talk(int depth) {
        const std::size_t index = choose(m_conversations.size());
        Messages before = m_conversations[index].messages;
        const std::string mark = "#" + std::to_string(++m_turns);
        const std::string question = makeText() + mark + "$";
        const std::string reply = replaceIllFormed(makeText());
        const bool opensStream = choose(3) == 0;
        // A turn that begins while another one waits is in that one's scope.
        const bool isStreamed = opensStream || m_openStreams > 0;
        const bool fails = prepareReply(mark, reply, isStreamed);
        ExpectedTurn expected{.model = m_settings.model,
                              .temperature = m_settings.temperature,
                              .instructions = m_settings.combine(),
                              .messages = before,
                              .isStreamed = isStreamed};
        expected.messages.emplace_back(0, question);
        const bool isMalformed = m_settings.structure == &kStructures[2];
        if (depth < 2 && choose(3) == 0) {
            m_whileWaiting = [this, depth] { act(depth + 1); };
        }
        s_reports = 0;
        ChatAnswer result;
        if (opensStream) {
            const CMTextStream stream([](std::string_view) {});
            ++m_openStreams;
            result = say(*m_conversations[index].session, question);
            --m_openStreams;
        } else {
            result = say(*m_conversations[index].session, question);
        }
        m_whileWaiting = {};
        EXPECT_TRUE(!isMalformed || s_reports > 0) << "a malformed structure is reported at every turn";
        EXPECT_EQ(result.error.empty(), !fails) << result.error;
        EXPECT_EQ(findBody(mark), writeBody(expected));
        if (!fails) {
            EXPECT_EQ(result.text, reply);
            m_conversations[index].messages.emplace_back(0, question);
            m_conversations[index].messages.emplace_back(1, reply);
        }
    }

    bool prepareReply(const std::string& mark, const std::string& reply, bool isStreamed) {
        LoopbackReply good{.body = GetParam().writeReply(quote(reply))};
        if (isStreamed) {
            good.body = GetParam().stream.writePiece(quote(reply)) + GetParam().stream.end;
        }
        const LoopbackReply bad[] = {{.status = 500, .body = "broken"},
                                     {.body = "not JSON"},
                                     {.body = "{}"},
                                     {.fault = LoopbackFault::ResetBeforeReply},
                                     {.body = std::string(100, ' '), .fault = LoopbackFault::CutInBody}};
        const bool fails = choose(4) == 0;
        const std::lock_guard lock(m_repliesMutex);
        m_replies[mark] = fails ? bad[choose(std::size(bad))] : good;
        return fails;
    }

    /// The body of the request with this mark; a request may have been sent again.
    [[nodiscard]] std::string findBody(const std::string& mark) const {
        std::string body;
        for (const LoopbackRequest& request : m_server.requests()) {
            if (findMark(request.body) == mark) {
                body = request.body;
            }
        }
        return body;
    }

    void save() {
        const Conversation& conversation = m_conversations[choose(m_conversations.size())];
        m_saved.push_back({conversation.session->serializeSession(), m_settings, conversation.messages});
    }

    void restore() {
        if (m_saved.empty()) {
            return;
        }
        const Saved& saved = m_saved[choose(m_saved.size())];
        m_conversations.push_back({restoreSession(*m_assistant, saved.text), saved.messages});
        m_settings.model = saved.settings.model;
        m_settings.temperature = m_settings.temperature.empty() ? "1" : m_settings.temperature;
        m_settings.userInstructions = saved.settings.userInstructions;
        for (const auto& [name, instruction] : saved.settings.systemInstructions) {
            m_settings.systemInstructions[name] = instruction;
        }
        // An empty structure in a text leaves the present one.
        m_settings.structure = saved.settings.structure != nullptr ? saved.settings.structure : m_settings.structure;
        // What is ill-formed is replaced in the text already.
        for (auto* text : {&m_settings.userInstructions, &m_settings.model}) {
            *text = replaceIllFormed(*text);
        }
        for (auto& [name, instruction] : m_settings.systemInstructions) {
            instruction = replaceIllFormed(instruction);
        }
        for (auto& [role, text] : m_conversations.back().messages) {
            text = replaceIllFormed(text);
        }
    }

    void act(int depth) {
        switch (choose(10)) {
            case 0:
                return begin();
            case 1:
                return save();
            case 2:
                return restore();
            case 3:
            case 4:
            case 5:
                return change();
            default:
                return talk(depth);
        }
    }

    std::mt19937 m_random;
    int m_turns = 0;
    int m_openStreams = 0;
    Settings m_settings;
    std::vector<Conversation> m_conversations;
    std::vector<Saved> m_saved;
    std::mutex m_repliesMutex;
    std::map<std::string, LoopbackReply> m_replies;
    std::function<void()> m_whileWaiting;
};

INSTANTIATE_FOR_CHAT_PROVIDERS(ChatOracle);

}  // namespace

TEST_P(ChatOracle, AgreesWithEveryBodyOfRandomConversations) {
    CMRestGlobalSettings settings = makeSettings();
    settings.cancelled = [this] {
        if (const std::function<void()> act = std::exchange(m_whileWaiting, {})) {
            act();
        }
        return false;
    };
    KAISetHTTPSettings(settings);
    for (unsigned seed = 1; seed <= 4 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        m_random.seed(seed);
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            act(0);
        }
        for (const Conversation& conversation : m_conversations) {
            Messages messages;
            const nlohmann::json text = nlohmann::json::parse(conversation.session->serializeSession());
            for (const nlohmann::json& message : text.at("messages")) {
                messages.emplace_back(message.at("role") == "assistant" ? 1 : 0, message.at("content"));
            }
            Messages expected = conversation.messages;
            for (auto& [role, content] : expected) {
                content = replaceIllFormed(content);
            }
            EXPECT_EQ(messages, expected);
        }
    }
    EXPECT_GT(m_turns, 100);
}
