#include <unistd.h>

#include <string>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/text_safety.h"

namespace host {

ExitCode runForget(const Options& options, Console& console) {
    const ConversationSetup setup = setUpConversation(options, nullptr);
    if (setup.provider->isHistoryLocal) {
        throw HostError(ExitCode::Usage, "a conversation with " + std::string(setup.provider->name) +
                                             " is nowhere but in its file; delete the file yourself");
    }
    const ApiKey key = obtainKey(*setup.provider, options, console);
    ExchangeWatch watch(console, chooseHttpOptions(options, *setup.provider));
    watch.install();
    Assistant assistant(*setup.provider, key, chooseApiHost(options, *setup.provider).value, watch, console);
    AssistantSettings settings;
    settings.apiHost = assistant.obtainApiHost();
    checkSavedHost(setup, options, settings.apiHost);
    assistant.resume(setup.saved->sessionText);
    assistant.configure(settings);
    assistant.deleteOnService();
    if (unlink(options.continueFile.c_str()) != 0) {
        throw HostError(ExitCode::Usage, "the conversation is deleted on the service, but its file '" +
                                             makeOneLine(options.continueFile) +
                                             "' cannot be removed; delete the file yourself");
    }
    console.note("the conversation is deleted on the service, and its file");
    return ExitCode::Done;
}

}  // namespace host
