// A host in thirty lines: an assistant, its settings, a translated error. Nothing is sent: no model is set.
#include <kai.h>

#include <cf/utilities.h>

#include <cstdio>
#include <cstring>

static void translate(const char* eventName, void* data) {
    auto* info = static_cast<KAICallbackLocalizationInfo*>(data);
    if (std::strcmp(eventName, "KAILocalizeString") == 0 && std::strcmp(info->sourceText, "Model is empty") == 0) {
        std::strcpy(info->answerBuffer, "Kein Modell");
    }
}

int main() {
    KAIRegisterCallback(&translate);
    KAISetHTTPSettings(CMRestGlobalSettings{});
    IKAIAssistant* assistant =
        KAICreateAssistant(KAIAssistantType::DEEPSEEK, cfCreateHTTPPoolCenter(), "no key", " localhost ");
    if (!assistant || KAICreateAssistant(static_cast<KAIAssistantType>(4), nullptr, "", "")) {
        return 1;
    }
    CODefer freeAssistant([assistant] { KAIFreeObject(assistant); });
    assistant->setAssistantProperties(
        [](IKAIProperties* fill) { fill->setProperty("user_instructions", "Be brief."); });

    IKAIProperties* properties = assistant->obtainAssistantProperties();
    const std::string instructions = properties->obtainProperty("combined_instructions").stringValue();
    const std::string host = properties->obtainProperty("api_host").stringValue();
    KAIFreeObject(properties);

    IKAISession* session = assistant->createSession().first;
    const auto [message, error] = assistant->addMessage(session, "How many orders are there?");
    assistant->destroySession(session);
    KAIFreeObject(session);
    std::printf("%s | %s | %s\n", host.c_str(), instructions.c_str(), error.c_str());
    const bool isAsExpected = !message && host == "localhost" && instructions == "Be brief.\n\n" &&
                              error == "Kein Modell: p/chat/completions";
    return isAsExpected ? 0 : 1;
}
