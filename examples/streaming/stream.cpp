// A host that shows the answer while the service writes it.
//   stream QUESTION [HOST [CA_FILE]]
// Reads the key from DEEPSEEK_API_KEY.
#include <cf/stream.h>
#include <kai.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: stream QUESTION [HOST [CA_FILE]]\n";
        return 2;
    }
    CMRestGlobalSettings settings;
    settings.caBundleFile = argc > 3 ? argv[3] : "";
    KAISetHTTPSettings(settings);

    const char* key = std::getenv("DEEPSEEK_API_KEY");
    const KAIPtr<IKAIAssistant> assistant(KAICreateAssistant(KAIAssistantType::DEEPSEEK, cfCreateHTTPPoolCenter(),
                                                             key ? key : "", argc > 2 ? argv[2] : ""));
    assistant->setAssistantProperties(
        [](IKAIProperties* properties) { properties->setProperty("model", "deepseek-v4-flash"); });
    const KAIPtr<IKAISession> session(assistant->createSession().first);

    const CMTextStream stream([](std::string_view piece) { std::cout << piece << std::flush; });
    const auto [message, error] = assistant->addMessage(session.get(), argv[1]);
    const KAIPtr<IKAIMessage> answer(message);
    std::cout << '\n';
    if (!answer) {
        std::cerr << "not answered: " << error << '\n';  // the pieces shown above are no answer
        return 1;
    }
}
