#include <string>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "conversation/instructions.h"
#include "terminal/text_safety.h"

namespace host {

ExitCode runPrompt(const Options& options, Console& console) {
    const OpenDatabase database = openDatabase(options.database, options.structure, console);
    AssistantSettings settings;
    settings.userInstructions = options.instructions;
    const std::string leftOut = describeDatabase(settings, database, options.structure,
                                                 obtainChosenBudget(options.structure), options.question);
    // The text is the same for every provider; this one's assistant is set up without a request.
    const ApiKey key;
    ExchangeWatch watch(console, options.http);
    Assistant assistant(*findProvider("deepseek"), key, "", watch, console);
    assistant.configure(settings);
    const std::string prompt = assistant.obtainCombinedInstructions();
    console.printPlain(console.isOutputTerminal() ? makeVisible(prompt, LineBreaks::Keep) : prompt);
    console.flush();
    console.note(formatCount(prompt.size()) + " bytes, about " + formatCount(estimateTokens(prompt.size())) +
                 " tokens (an estimate: 4 bytes a token)");
    if (!leftOut.empty()) {
        console.note(leftOut);
    }
    if (const std::string warning = warnOfContextWindow(prompt.size());
        obtainChosenProvider(options).isContextWindowShort && !warning.empty()) {
        console.note(warning);
    }
    return ExitCode::Done;
}

}  // namespace host
