#ifndef KAI_EMULATOR_OPENAI_OBJECTS_H
#define KAI_EMULATOR_OPENAI_OBJECTS_H

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// One attempt of an assistant to answer a thread. Each poll shows the next of the states that the script wants.
struct OpenAIRun {
    KAIEmulatorJson object;
    KAIEmulatedAnswer answer;
    std::size_t polls = 0;
    std::vector<KAIEmulatorJson> steps{};  ///< oldest first

    [[nodiscard]] std::string obtainID() const;
    /// Throws KAIRefusal when there is none of this id.
    [[nodiscard]] const KAIEmulatorJson& obtainStep(const std::string& id) const;
    /// Whether it may still change: meanwhile the thread takes neither messages nor runs.
    [[nodiscard]] bool isActive() const;
};

struct OpenAIThread {
    KAIEmulatorJson object;
    std::vector<KAIEmulatorJson> messages;  ///< oldest first
    std::deque<OpenAIRun> runs;

    [[nodiscard]] const OpenAIRun* findActiveRun() const;
    /// Throws KAIRefusal when there is none of this id.
    [[nodiscard]] OpenAIRun& obtainRun(const std::string& id);
    [[nodiscard]] KAIEmulatorJson& obtainMessage(const std::string& id);
    /// Adds a message that a client's body asks for, which has been checked.
    KAIEmulatorJson& addMessage(const KAIEmulatorJson& body);
};

/// What clients have on the service, in the order of creation. What is looked for and is not there is refused with 404.
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

/// An assistant with the members of a request's body over the service's own.
[[nodiscard]] KAIEmulatorJson makeOpenAIAssistant(const KAIEmulatorJson& body);
[[nodiscard]] KAIEmulatorJson makeOpenAIThread(const KAIEmulatorJson& body);
/// A message of these texts, one content item each.
[[nodiscard]] KAIEmulatorJson makeOpenAIMessage(const OpenAIThread& thread, const std::string& role,
                                                const std::vector<std::string>& texts);
/// A queued run of an assistant on a thread. The body's members go before the assistant's.
[[nodiscard]] KAIEmulatorJson makeOpenAIRun(const OpenAIThread& thread, const KAIEmulatorJson& assistant,
                                            const KAIEmulatorJson& body);
/// The conversation that a run is to answer.
[[nodiscard]] KAIEmulatedTurn describeTurn(const OpenAIThread& thread, const KAIEmulatorJson& run);

/// Brings a run to its next state, with all that comes with it: times, errors, the answer in the thread.
void advanceRun(OpenAIThread& thread, OpenAIRun& run);
/// Ends a run on the client's wish. Throws KAIRefusal when it has ended already.
void cancelRun(OpenAIRun& run);
/// Lets a run go on that waits for the outputs of tools. Throws KAIRefusal when it does not wait.
void submitToolOutputs(OpenAIRun& run);

#endif
