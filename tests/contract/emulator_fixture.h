#ifndef TESTS_EMULATOR_FIXTURE_H
#define TESTS_EMULATOR_FIXTURE_H

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "cf/assertion.h"
#include "chat_fixture.h"
#include "kai_emulator.h"

/// A provider's emulated service, and assistants that talk to it.
class EmulatorFixture {
protected:
    explicit EmulatorFixture(KAIEmulatorOptions options) : m_emulator(options) {
        cfSetAssertionHandler([](const char*, const char*, int) {});
        CMRestGlobalSettings settings;
        settings.caBundleFile = m_emulator.obtainServer().obtainCAFile();
        KAISetHTTPSettings(settings);
        m_emulator.answerWith([this](const KAIEmulatedTurn& turn) {
            const std::lock_guard lock(m_mutex);
            m_turns.push_back(turn);
            return KAIEmulatedAnswer::say("answer to " + turn.obtainQuestion());
        });
    }
    ~EmulatorFixture() {
        KAISetHTTPSettings(CMRestGlobalSettings());
        cfSetAssertionHandler(nullptr);
    }

    [[nodiscard]] AssistantHandle createAssistant(KAIAssistantType type, const std::string& key = "secret") {
        return AssistantHandle(KAICreateAssistant(type, cfCreateHTTPPoolCenter(), key, m_emulator.obtainHost()));
    }

    /// The last turn that the service was asked to answer.
    [[nodiscard]] KAIEmulatedTurn obtainLastTurn() {
        const std::lock_guard lock(m_mutex);
        return m_turns.empty() ? KAIEmulatedTurn() : m_turns.back();
    }

    /// "ROLE: TEXT" of the messages of a turn.
    static std::vector<std::string> describe(const KAIEmulatedTurn& turn) {
        std::vector<std::string> messages;
        for (const KAIEmulatedMessage& message : turn.messages) {
            messages.push_back(message.role + ": " + message.text);
        }
        return messages;
    }

    /// The texts of an answer, joined by "|"; the error text in angle brackets where there is none.
    static std::string say(IKAIAssistant& assistant, IKAISession& session, const std::string& text) {
        auto [rawMessage, error] = assistant.addMessage(&session, text);
        const KAIPtr<IKAIMessage> message(rawMessage);
        if (!message) {
            return "<" + error + ">";
        }
        std::string joined;
        for (IKAIMessageSection* section : message->obtainSections()) {
            joined += (joined.empty() ? "" : "|") + std::string(section->obtainText());
        }
        return joined;
    }

    std::mutex m_mutex;  // of m_turns
    std::vector<KAIEmulatedTurn> m_turns;
    KAIEmulator m_emulator;
};

#endif
