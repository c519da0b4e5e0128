#include <string>
#include <vector>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/text_safety.h"

namespace host {

ExitCode runModels(const Options& options, Console& console) {
    const Provider& provider = obtainChosenProvider(options);
    const ApiKey key = obtainKey(provider, options, console);
    ExchangeWatch watch(console, options.http);
    watch.install();
    Assistant assistant(provider, key, options.apiHost.value_or(""), watch, console);
    const std::vector<std::string> models = assistant.listModels();
    for (const std::string& model : models) {
        console.printText(makeVisible(model, LineBreaks::Show));
    }
    if (models.empty()) {
        console.note(std::string(provider.name) + " at " + makeOneLine(assistant.obtainApiHost()) +
                     " has no models to offer");
    }
    return ExitCode::Done;
}

}  // namespace host
