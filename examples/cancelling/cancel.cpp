// A host that lets its user cancel a question: with Enter, or with the end of the input.
//   cancel QUESTION [HOST [CA_FILE]]
// Reads the key from DEEPSEEK_API_KEY. Exit status: 0 answered, 1 failed, 2 wrong usage, 3 cancelled.
#include <kai.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>

namespace {

std::atomic<bool> s_isCancelRequested{false};

void installSettings(const std::string& caFile) {
    CMRestGlobalSettings settings;
    settings.caBundleFile = caFile;
    settings.cancelled = [] { return s_isCancelRequested.load(); };  // asked at least ten times a second
    KAISetHTTPSettings(settings);
}

/// Waits for a line or the end of the input, or until the turn has ended.
void watchInput(const std::atomic<bool>& isDone) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (!isDone) {
        if (poll(&input, 1, 100) > 0) {
            s_isCancelRequested = true;
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: cancel QUESTION [HOST [CA_FILE]]\n";
        return 2;
    }
    installSettings(argc > 3 ? argv[3] : "");
    const char* key = std::getenv("DEEPSEEK_API_KEY");
    const KAIPtr<IKAIAssistant> assistant(KAICreateAssistant(KAIAssistantType::DEEPSEEK, cfCreateHTTPPoolCenter(),
                                                             key ? key : "", argc > 2 ? argv[2] : ""));
    assistant->setAssistantProperties(
        [](IKAIProperties* properties) { properties->setProperty("model", "deepseek-v4-flash"); });
    const KAIPtr<IKAISession> session(assistant->createSession().first);

    std::atomic<bool> isDone{false};
    std::thread watcher([&] { watchInput(isDone); });
    const auto [message, error] = assistant->addMessage(session.get(), argv[1]);
    isDone = true;
    watcher.join();

    const KAIPtr<IKAIMessage> answer(message);
    if (answer) {
        std::cout << answer->obtainSections().front()->obtainText() << '\n';
        return 0;
    }
    // A turn that failed after the user asked to cancel it was cancelled. Error texts tell nothing reliable: they may
    // be translated.
    if (s_isCancelRequested) {
        std::cerr << "cancelled; the conversation is as it was\n";
        return 3;
    }
    std::cerr << "not answered: " << error << '\n';
    return 1;
}
