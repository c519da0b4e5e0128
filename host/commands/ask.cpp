#include <iostream>
#include <iterator>
#include <string>

#include "commands/commands.h"
#include "conversation/conversation.h"

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

}  // namespace

ExitCode runAsk(const Options& options, Console& console) {
    const std::string question = readQuestion(options.question);
    Conversation conversation(options, console);
    conversation.takeTurn(question);
    return ExitCode::Done;
}

}  // namespace host
