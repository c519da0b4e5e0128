#include <string>
#include <vector>

#include "commands/commands.h"
#include "conversation/conversation.h"
#include "terminal/text_safety.h"

namespace host {

ExitCode runModels(const Options& options, Console& console) {
    const Provider& provider = obtainChosenProvider(options);
    const ApiKey key = obtainKey(provider, options, console);
    ExchangeWatch watch(console, chooseHttpOptions(options, provider));
    watch.install();
    Assistant assistant(provider, key, chooseApiHost(options, provider).value, watch, console);
    const std::vector<std::string> models = assistant.listModels();
    for (const std::string& model : models) {
        console.printText(makeVisible(model, LineBreaks::Show));
    }
    if (models.empty()) {
        console.note(
            std::string(provider.name) + " at " + makeOneLine(assistant.obtainApiHost()) +
            " lists no models that can be used here; where the service names them in its documentation, name one with "
            "--model");
    }
    return ExitCode::Done;
}

}  // namespace host
