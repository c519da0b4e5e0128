// Asks a provider two questions, and for a whole answer to each.
//
//   kai-whole-turns PROVIDER HOST MODEL [CA_FILE]

#include <kai.h>

#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const std::map<std::string, KAIAssistantType> kTypes{
    {"deepseek", KAIAssistantType::DEEPSEEK},
    {"google", KAIAssistantType::GOOGLE},
    {"ollama", KAIAssistantType::OLLAMA},
    {"openai", KAIAssistantType::OPENAI},
};

void require(const std::string& error) {
    if (!error.empty()) {
        throw std::runtime_error(error);
    }
}

void askTwice(KAIAssistantType type, const std::string& host, const std::string& model) {
    const KAIPtr<IKAIAssistant> assistant(KAICreateAssistant(type, cfCreateHTTPPoolCenter(), "k", host));
    require(assistant->setAssistantProperties([&](IKAIProperties* properties) {
        properties->setProperty("model", model);
        properties->setProperty("temperature", 0.5);
        properties->setProperty("user_instructions", "Be brief.");
    }));
    auto [rawSession, sessionError] = assistant->createSession();
    const KAIPtr<IKAISession> session(rawSession);
    require(sessionError);
    for (const char* const question : {"How many customers?", "And how many products?"}) {
        auto [rawMessage, error] = assistant->addMessage(session.get(), question);
        const KAIPtr<IKAIMessage> message(rawMessage);
        require(error);
    }
    require(assistant->destroySession(session.get()));
}

}  // namespace

int main(int count, char** values) {
    try {
        const std::vector<std::string> arguments(values + 1, values + count);
        CMRestGlobalSettings settings;
        settings.caBundleFile = arguments.size() > 3 ? arguments[3] : "";
        KAISetHTTPSettings(settings);
        askTwice(kTypes.at(arguments.at(0)), arguments.at(1), arguments.at(2));
    } catch (const std::exception& exception) {
        std::cerr << "kai-whole-turns: " << exception.what() << '\n';
        return 1;
    }
}
