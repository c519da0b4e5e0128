// Measures one thing and prints what was measured, a name and a value a line.
//
//   kai_bench CASE REPEATS [ARGUMENT...]
//
// kai_bench_table runs it for all cases, under callgrind and by itself.

#include <cstdio>
#include <exception>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "cases.h"

namespace {

using Arguments = std::vector<std::string>;
using Case = std::function<void(Meter&, const Arguments&)>;

template <typename Function>
Case takeSize(Function function) {
    return [function](Meter& meter, const Arguments& arguments) { function(meter, std::stoul(arguments.at(0))); };
}

/// Arguments: PROVIDER MESSAGES [TABLES [KIND_OF_TEXT]]
template <typename Function>
Case takeTurn(Function function, TurnSubject subject) {
    return [function, subject](Meter& meter, const Arguments& arguments) mutable {
        subject.provider = arguments.at(0);
        subject.messages = std::stoul(arguments.at(1));
        subject.tables = arguments.size() > 2 ? std::stoul(arguments[2]) : 0;
        subject.texts = arguments.size() > 3 ? readTextKind(arguments[3]) : TextKind::Plain;
        function(meter, subject);
    };
}

const std::map<std::string, Case>& obtainCases() {
    static const std::map<std::string, Case> cases{
        {"turn", takeTurn(measureTurn, {})},
        {"turn-after-change", takeTurn(measureTurn, {.isFirstAfterChange = true})},
        {"turn-floor", takeTurn(measureTurnFloor, {})},
        {"streamed-turn", takeTurn(measureTurn, {.isStreamed = true})},
        {"streamed-turn-floor", takeTurn(measureTurnFloor, {.isStreamed = true})},
        {"history-memory",
         [](Meter& /*meter*/, const Arguments& arguments) { measureHistoryMemory(std::stoul(arguments.at(0))); }},
        {"connections", [](Meter& /*meter*/, const Arguments& arguments) { countConnections(arguments.at(0)); }},
        {"first-turn", [](Meter& meter, const Arguments& /*arguments*/) { measureFirstTurn(meter, false); }},
        {"second-first-turn", [](Meter& meter, const Arguments& /*arguments*/) { measureFirstTurn(meter, true); }},
        {"creation", [](Meter& meter, const Arguments& arguments) { measureCreation(meter, arguments.at(0)); }},
        {"statements", takeSize(measureStatements)},
        {"statements-floor", takeSize(measureStatementsFloor)},
        {"serialization", takeSize(measureSerialization)},
        {"serialization-floor", takeSize(measureSerializationFloor)},
        {"restoration", takeSize(measureRestoration)},
        {"restoration-floor", takeSize(measureRestorationFloor)},
        {"reply", takeSize(measureReply)},
        {"reply-floor", takeSize(measureReplyFloor)},
    };
    return cases;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Arguments words(argv + 1, argv + argc);
        Meter meter(std::stoul(words.at(1)));
        obtainCases().at(words[0])(meter, Arguments(std::next(words.begin(), 2), words.end()));
        meter.report();
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "kai_bench: %s\n", exception.what());
        return 1;
    }
}
