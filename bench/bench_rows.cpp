#include "bench_rows.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "number_format.h"

namespace {

struct Goal {
    std::optional<double> target{};
    std::optional<double> moonshot{};
};

BenchCase takeSize(std::string name, std::size_t size, std::size_t repeats) {
    return {.name = std::move(name), .arguments = {std::to_string(size)}, .repeats = repeats};
}

BenchCase takeTurn(std::string name, const std::string& provider, std::size_t messages) {
    return {.name = std::move(name),
            .arguments = {provider, std::to_string(messages)},
            .repeats = messages < 1000 ? 20U : 5U};
}

/// The costs of two cases, one over the other.
BenchRow compareCosts(CaseRunner& runner, std::string key, std::string what, const BenchCase& ours,
                      const BenchCase& floor, Goal goal) {
    const BenchCost ourCost = runner.obtainCost(ours);
    const BenchCost floorCost = runner.obtainCost(floor);
    return {.key = std::move(key),
            .what = std::move(what),
            .floor = formatInstructions(floorCost.instructions),
            .ours = formatInstructions(ourCost.instructions),
            .value = ourCost.instructions / floorCost.instructions,
            .unit = " ×",
            .target = goal.target,
            .moonshot = goal.moonshot,
            .floorTime = formatSeconds(floorCost.seconds),
            .ourTime = formatSeconds(ourCost.seconds)};
}

/// A plain number.
BenchRow showNumber(std::string key, std::string what, double value, Goal goal, std::string unit = {}) {
    return {.key = std::move(key),
            .what = std::move(what),
            .ours = formatValue(value),
            .value = value,
            .unit = std::move(unit),
            .target = goal.target,
            .moonshot = goal.moonshot};
}

constexpr std::size_t kLongConversation = 2000;

void measureTurns(CaseRunner& runner, std::vector<BenchRow>& rows) {
    struct Length {
        std::size_t messages;
        const char* text;
        Goal goal;
    };
    struct Provider {
        const char* name;
        const char* text;
    };
    for (const Provider& provider : {Provider{"ollama", "Ollama (plain HTTP)"}, Provider{"deepseek", "DeepSeek (TLS)"},
                                     Provider{"google", "Google (TLS)"}}) {
        for (const Length& length :
             {Length{2, "2", {2.0, 1.5}}, Length{200, "200", {2.5, 1.8}}, Length{2000, "2,000", {3.0, 2.0}}}) {
            rows.push_back(compareCosts(
                runner, std::string("turn_") + provider.name + "_" + std::to_string(length.messages),
                std::string("a turn over libcurl alone: ") + provider.text + ", " + length.text + " messages",
                takeTurn("turn", provider.name, length.messages),
                takeTurn("turn-floor", provider.name, length.messages), length.goal));
        }
    }
    rows.push_back(compareCosts(runner, "google_over_deepseek",
                                "a turn with Google over one with DeepSeek, 2,000 messages",
                                takeTurn("turn", "google", kLongConversation),
                                takeTurn("turn", "deepseek", kLongConversation), {1.15, std::nullopt}));
}

void measureMemory(CaseRunner& runner, std::vector<BenchRow>& rows) {
    auto longTurn = runner.obtainMemory(takeTurn("turn", "ollama", kLongConversation));
    auto longFloor = runner.obtainMemory(takeTurn("turn-floor", "ollama", kLongConversation));
    auto shortTurn = runner.obtainMemory(takeTurn("turn", "ollama", 2));

    BenchRow allocations =
        showNumber("allocations", "allocations in a turn, 2,000 messages", longTurn["allocations"], {300, 100});
    allocations.floor = formatCount(longFloor["allocations"]);
    rows.push_back(std::move(allocations));
    rows.push_back(showNumber("more_allocations", "allocations that 2,000 messages take more than 2",
                              std::max(0.0, longTurn["allocations"] - shortTurn["allocations"]), {std::nullopt, 0}));

    BenchRow growth = showNumber("heap_growth", "peak growth of the heap in a turn, 2,000 messages, in bodies",
                                 longTurn["heap_growth"] / longTurn["body_bytes"], {1.6, 1.1});
    growth.floor = formatValue(longFloor["heap_growth"] / longFloor["body_bytes"]);
    rows.push_back(std::move(growth));
}

void measureConnections(CaseRunner& runner, std::vector<BenchRow>& rows) {
    auto counts = runner.obtainMemory({.name = "connections", .arguments = {"deepseek"}});
    rows.push_back(
        showNumber("connections", "connections in 100 turns over TLS", counts["connections"], {1, std::nullopt}));
    rows.push_back(showNumber("handshakes", "TLS handshakes in 100 turns", counts["handshakes"], {1, std::nullopt}));
    rows.push_back(compareCosts(runner, "second_first_turn",
                                "the second assistant's first turn over TLS, over the first's",
                                {.name = "second-first-turn"}, {.name = "first-turn"}, {0.2, 0.1}));
}

/// How much the dearest table of these databases costs over the cheapest.
BenchRow measureSpread(CaseRunner& runner, const std::vector<std::size_t>& sizes) {
    std::vector<double> costs;
    std::string text;
    for (const std::size_t size : sizes) {
        const std::size_t repeats = size <= 1000 ? 5 : 1;
        costs.push_back(runner.obtainCost(takeSize("statements", size, repeats)).instructions /
                        static_cast<double>(size));
        text += (text.empty() ? "" : ", ") + formatInstructions(costs.back());
    }
    const auto [least, most] = std::minmax_element(costs.begin(), costs.end());
    std::string what = "statements: cost a table, the dearest over the cheapest, at ";
    for (const std::size_t size : sizes) {
        what += formatCount(static_cast<double>(size)) + (size == sizes.back() ? " tables" : ", ");
    }
    return {.key = "statements_spread",
            .what = std::move(what),
            .ours = text,
            .value = *most / *least,
            .unit = " ×",
            .target = 1.10};
}

void measureTexts(CaseRunner& runner, std::vector<BenchRow>& rows, bool isQuick) {
    constexpr std::size_t kTables = 10'000;
    constexpr std::size_t kReplyBytes = 100'000;
    rows.push_back(compareCosts(runner, "statements", "10,000 tables to statements, over simdjson on demand",
                                takeSize("statements", kTables, 1), takeSize("statements-floor", kTables, 1),
                                {2.2, 1.5}));
    std::vector<std::size_t> sizes{100, 1000, kTables};
    if (!isQuick) {
        sizes.push_back(10 * kTables);
    }
    rows.push_back(measureSpread(runner, sizes));
    rows.push_back(compareCosts(runner, "serialization", "serializeSession, 2,000 messages, over a copy of the text",
                                takeSize("serialization", kLongConversation, 5),
                                takeSize("serialization-floor", kLongConversation, 5), {6.0, 3.0}));
    rows.push_back(compareCosts(runner, "restoration", "restoreSession of that text, over simdjson DOM reading it",
                                takeSize("restoration", kLongConversation, 5),
                                takeSize("restoration-floor", kLongConversation, 5), {2.0, 1.5}));
    rows.push_back(compareCosts(runner, "reply", "a 100 KB reply read, over simdjson DOM reading it",
                                takeSize("reply", kReplyBytes, 10), takeSize("reply-floor", kReplyBytes, 10),
                                {1.5, 1.2}));
}

void measureCreationAndSize(CaseRunner& runner, std::vector<BenchRow>& rows) {
    const BenchCost creation = runner.obtainCost({.name = "creation", .arguments = {"deepseek"}, .repeats = 20});
    rows.push_back(showNumber("creation", "create and free an assistant, without a request", creation.instructions,
                              {60'000, 15'000}));
    rows.back().ourTime = formatSeconds(creation.seconds);

    const double kai = runner.obtainStrippedSize(KAI_LIBRARY) / 1000;
    const double cf = runner.obtainStrippedSize(CF_LIBRARY) / 1000;
    rows.push_back(showNumber("size", "libkai.so and libcf.so, stripped, together", kai + cf, {400, 250}, " KB"));
    rows.back().ours = formatValue(kai) + " + " + formatValue(cf);
}

}  // namespace

std::vector<BenchRow> measureRows(CaseRunner& runner, bool isQuick) {
    std::vector<BenchRow> rows;
    measureTurns(runner, rows);
    measureMemory(runner, rows);
    measureConnections(runner, rows);
    measureTexts(runner, rows, isQuick);
    measureCreationAndSize(runner, rows);
    return rows;
}
