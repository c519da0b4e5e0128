#include "conversation/instructions.h"

namespace host {

std::map<std::string, std::string> makeSystemInstructions(std::string_view engine, std::string_view version) {
    const std::string name(engine);
    // The names are not sent; their order is the order of the texts.
    return {
        {"1_dialect", "You help with questions about one " + name + " database (" + name + " " + std::string(version) +
                          "). Write SQL in the " + name +
                          " dialect, and only queries: statements that change data or the schema are refused."},
        {"2_answer",
         "Answer briefly. Where SQL answers the question, give it once and complete in one fenced code block that "
         "begins "
         "with ```sql; end each statement with a semicolon and use no parameters or placeholders."},
        {"3_structure",
         "The database is described below, one statement a line, names in backquotes (quote them as the "
         "dialect does). The column lists of keys are "
         "written without commas: PRIMARY KEY(`a``b`) is the two columns a and b."},
    };
}

std::size_t estimateTokens(std::size_t bytes) {
    return bytes / 4 + (bytes % 4 != 0 ? 1 : 0);
}

std::string formatCount(std::size_t count) {
    std::string text = std::to_string(count);
    for (std::size_t place = text.size(); place > 3; place -= 3) {
        text.insert(place - 3, 1, ',');
    }
    return text;
}

std::string warnOfContextWindow(std::size_t promptBytes) {
    const std::size_t tokens = estimateTokens(promptBytes);
    if (tokens <= kUsualContextWindow) {
        return {};
    }
    return "the prompt is about " + formatCount(tokens) + " tokens (an estimate), more than the " +
           formatCount(kUsualContextWindow) +
           " that an Ollama server usually keeps; it may cut the prompt off without a word: start the server with "
           "OLLAMA_CONTEXT_LENGTH=" +
           std::to_string(2 * tokens) + " or set num_ctx in the model's Modelfile";
}

}  // namespace host
