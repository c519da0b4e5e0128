#include "commands.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>

#include "conversation/dialogue.h"
#include "conversation/instructions.h"
#include "terminal/text_safety.h"

namespace host {
namespace {

std::string readQuestion(const std::string& question) {
    if (question != "-") {
        return question;
    }
    std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.pop_back();
    }
    if (text.find_first_not_of(" \t\r\n\v\f") == std::string::npos) {
        throw HostError(ExitCode::Usage, "the question on standard input is empty; write one");
    }
    return text;
}

const Provider& chooseProvider(const Options& options) {
    return *findProvider(options.provider.empty() ? "deepseek" : options.provider);
}

}  // namespace

ExitCode runAsk(const Options& options, Console& console) {
    const std::string question = readQuestion(options.question);
    Dialogue dialogue(options, console);
    dialogue.ask(question);
    if (options.isRun) {
        dialogue.runSql(std::nullopt);
    }
    return ExitCode::Done;
}

ExitCode runModels(const Options& options, Console& console) {
    const Provider& provider = chooseProvider(options);
    const ApiKey key = obtainKey(provider, options, console);
    ExchangeWatch watch(console, options.http);
    watch.install();
    Conversation conversation(provider, key, options.apiHost.value_or(""), watch, console);
    const std::vector<std::string> models = conversation.listModels();
    for (const std::string& model : models) {
        console.printText(makeVisible(model, LineBreaks::Show));
    }
    if (models.empty()) {
        console.note(std::string(provider.name) + " at " + makeOneLine(conversation.obtainApiHost()) +
                     " has no models to offer");
    }
    return ExitCode::Done;
}

ExitCode runPrompt(const Options& options, Console& console) {
    const OpenDatabase database = openDatabase(options.database, console);
    AssistantSettings settings;
    settings.userInstructions = options.instructions;
    describeDatabase(settings, database);
    // The text is the same for every provider; this one's assistant is set up without a request.
    const ApiKey key;
    ExchangeWatch watch(console, options.http);
    Conversation conversation(*findProvider("deepseek"), key, "", watch, console);
    conversation.configure(settings);
    const std::string prompt = conversation.obtainCombinedInstructions();
    console.printPlain(console.isOutputTerminal() ? makeVisible(prompt, LineBreaks::Keep) : prompt);
    console.flush();
    console.note(formatCount(prompt.size()) + " bytes, about " + formatCount(estimateTokens(prompt.size())) +
                 " tokens (an estimate: 4 bytes a token)");
    if (const std::string warning = warnOfContextWindow(prompt.size());
        chooseProvider(options).isContextWindowShort && !warning.empty()) {
        console.note(warning);
    }
    return ExitCode::Done;
}

ExitCode runForget(const Options& options, Console& console) {
    const DialoguePlan plan = planDialogue(options, nullptr);
    if (plan.provider->isHistoryLocal) {
        throw HostError(ExitCode::Usage, "a conversation with " + std::string(plan.provider->name) +
                                             " is nowhere but in its file; delete the file yourself");
    }
    const ApiKey key = obtainKey(*plan.provider, options, console);
    ExchangeWatch watch(console, options.http);
    watch.install();
    Conversation conversation(*plan.provider, key, options.apiHost.value_or(""), watch, console);
    AssistantSettings settings;
    settings.apiHost = conversation.obtainApiHost();
    checkSavedHost(plan, options, settings.apiHost);
    conversation.resume(plan.saved->sessionText);
    conversation.configure(settings);
    conversation.deleteOnService();
    if (unlink(options.continueFile.c_str()) != 0) {
        throw HostError(ExitCode::Usage, "the conversation is deleted on the service, but its file '" +
                                             makeOneLine(options.continueFile) +
                                             "' cannot be removed; delete the file yourself");
    }
    console.note("the conversation is deleted on the service, and its file");
    return ExitCode::Done;
}

}  // namespace host
