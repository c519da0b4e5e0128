#ifndef KAI_EMULATOR_OPENAI_OBJECTS_H
#define KAI_EMULATOR_OPENAI_OBJECTS_H

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// One attempt of an assistant to answer a thread. Each poll returns the next state of the script.
struct OpenAIRun {
    KAIEmulatorJson object;
    KAIEmulatedAnswer answer;
    std::size_t polls = 0;
    std::vector<KAIEmulatorJson> steps{};  ///< oldest first

    [[nodiscard]] std::string obtainID() const;
    /// Throws KAIRefusal if there is none with this id.
    [[nodiscard]] const KAIEmulatorJson& obtainStep(const std::string& id) const;
    /// Whether it may still change. While it may, the thread accepts neither messages nor runs.
    [[nodiscard]] bool isActive() const;
};

struct OpenAIThread {
    KAIEmulatorJson object;
    std::vector<KAIEmulatorJson> messages;  ///< oldest first
    std::deque<OpenAIRun> runs;

    [[nodiscard]] const OpenAIRun* findActiveRun() const;
    /// Throws KAIRefusal if there is none with this id.
    [[nodiscard]] OpenAIRun& obtainRun(const std::string& id);
    [[nodiscard]] KAIEmulatorJson& obtainMessage(const std::string& id);
    /// Adds the message of a client's body, which has been checked.
    KAIEmulatorJson& addMessage(const KAIEmulatorJson& body);
};

/// The objects of clients on the service, in the order of creation. Missing objects are refused with 404.
class OpenAIStore {
public:
    KAIEmulatorJson& addAssistant(KAIEmulatorJson object);
    OpenAIThread& addThread(KAIEmulatorJson object);
    [[nodiscard]] KAIEmulatorJson& obtainAssistant(const std::string& id);
    [[nodiscard]] OpenAIThread& obtainThread(const std::string& id);
    void removeAssistant(const std::string& id);
    void removeThread(const std::string& id);
    [[nodiscard]] std::vector<KAIEmulatorJson> listAssistants() const;
    /// Of all assistants, then of all threads.
    [[nodiscard]] std::vector<std::string> listIdentifiers() const;

private:
    std::deque<KAIEmulatorJson> m_assistants;
    std::deque<OpenAIThread> m_threads;
};

/// An assistant with the service's own members, overridden by those of a request's body.
[[nodiscard]] KAIEmulatorJson makeOpenAIAssistant(const KAIEmulatorJson& body);
[[nodiscard]] KAIEmulatorJson makeOpenAIThread(const KAIEmulatorJson& body);
/// A message of these texts, one content item each.
[[nodiscard]] KAIEmulatorJson makeOpenAIMessage(const OpenAIThread& thread, const std::string& role,
                                                const std::vector<std::string>& texts);
/// A queued run of an assistant on a thread. The body's members override the assistant's.
[[nodiscard]] KAIEmulatorJson makeOpenAIRun(const OpenAIThread& thread, const KAIEmulatorJson& assistant,
                                            const KAIEmulatorJson& body);
/// The conversation that a run has to answer.
[[nodiscard]] KAIEmulatedTurn describeTurn(const OpenAIThread& thread, const KAIEmulatorJson& run);

/// Moves a run to its next state, with its consequences: times, errors, the answer in the thread.
void advanceRun(OpenAIThread& thread, OpenAIRun& run);
/// Cancels a run. Throws KAIRefusal if it has already ended.
void cancelRun(OpenAIRun& run);
/// Continues a run that waits for the outputs of tools. Throws KAIRefusal if it does not wait.
void submitToolOutputs(OpenAIRun& run);

#endif
