#include <kai.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    const char* key = std::getenv("DEEPSEEK_API_KEY");
    KAIPtr<IKAIAssistant> assistant(KAICreateAssistant(KAIAssistantType::DEEPSEEK, cfCreateHTTPPoolCenter(),
                                                       key ? key : "", argc > 1 ? argv[1] : ""));
    assistant->setAssistantProperties([](IKAIProperties* properties) {
        properties->setProperty("model", "deepseek-v4-flash");
        properties->setProperty("user_instructions", "Answer with one SQL statement.");
        properties->setProperty("db_structure", R"([{"schemas": [{"tables": [{"name": "users",
            "fields": [{"name": "id", "type": "int"}, {"name": "email", "type": "text"}], "pkeys": ["id"]}]}]}])");
    });
    KAIPtr<IKAISession> session(assistant->createSession().first);
    const auto [message, error] = assistant->addMessage(session.get(), "How many users are there?");
    const KAIPtr<IKAIMessage> answer(message);
    if (!answer) {
        std::cerr << error << '\n';
        return 1;
    }
    for (IKAIMessageSection* section : answer->obtainSections()) {
        std::cout << section->obtainText() << '\n';
    }
    assistant->destroySession(session.get());
}
