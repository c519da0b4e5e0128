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

/// What a row about turns is about. The text of an assistant without a database, in plain texts, is as ever.
struct TurnKind {
    std::string provider = "ollama";
    std::size_t messages = 2;
    std::size_t tables = 0;
    std::string texts = "plain";
    bool hasVectorCopies = false;
};

BenchCase takeTurn(std::string name, const TurnKind& kind) {
    const bool isShort = kind.messages < 1000 && kind.tables < 1000;
    return {.name = std::move(name),
            .arguments = {kind.provider, std::to_string(kind.messages), std::to_string(kind.tables), kind.texts},
            .repeats = isShort ? 20U : 5U,
            .hasVectorCopies = kind.hasVectorCopies};
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
constexpr std::size_t kTables = 10'000;

BenchRow compareTurns(CaseRunner& runner, std::string key, const std::string& what, const TurnKind& kind, Goal goal) {
    return compareCosts(runner, std::move(key), "a turn over libcurl alone: " + what, takeTurn("turn", kind),
                        takeTurn("turn-floor", kind), goal);
}

/// A row of the table about turns.
struct TurnRow {
    const char* key;
    const char* what;
    TurnKind kind;
    Goal goal;
};

void measureTurns(CaseRunner& runner, std::vector<BenchRow>& rows) {
    const TurnRow table[] = {
        {"turn_ollama_2", "plain HTTP, 2 messages", {}, {1.35, 1.20}},
        {"turn_ollama_200", "plain HTTP, 200 messages", {.messages = 200}, {1.25, 1.12}},
        {"turn_ollama_2000", "plain HTTP, 2,000 messages", {.messages = 2000}, {1.10, 1.04}},
        {"turn_ollama_20000", "plain HTTP, 20,000 messages", {.messages = 20'000}, {1.05, 1.01}},
        {"turn_tables_100", "2 messages, 100 tables", {.tables = 100}, {1.25, 1.15}},
        {"turn_tables_1000", "2 messages, 1,000 tables", {.tables = 1000}, {1.10, 1.05}},
        {"turn_tables_10000", "2 messages, 10,000 tables", {.tables = kTables}, {1.05, 1.02}},
        {"turn_escapes", "2,000 messages rich in escapes", {.messages = 2000, .texts = "escapes"}, {1.15, 1.05}},
        {"turn_letters", "2,000 messages in Cyrillic", {.messages = 2000, .texts = "letters"}, {1.15, 1.05}},
        {"turn_vector_2", "by vector copies, 2 messages", {.hasVectorCopies = true}, {1.4, 1.2}},
        {"turn_vector_200", "by vector copies, 200 messages", {.messages = 200, .hasVectorCopies = true}, {1.4, 1.2}},
        {"turn_vector_2000",
         "by vector copies, 2,000 messages",
         {.messages = 2000, .hasVectorCopies = true},
         {1.3, 1.1}},
        {"turn_deepseek_2", "DeepSeek (TLS), 2 messages", {.provider = "deepseek"}, {1.30, 1.15}},
        {"turn_deepseek_200", "DeepSeek (TLS), 200 messages", {.provider = "deepseek", .messages = 200}, {1.10, 1.05}},
        {"turn_deepseek_2000",
         "DeepSeek (TLS), 2,000 messages",
         {.provider = "deepseek", .messages = 2000},
         {1.03, 1.01}},
        {"turn_google_2", "Google (TLS), 2 messages", {.provider = "google"}, {1.30, 1.15}},
        {"turn_google_200", "Google (TLS), 200 messages", {.provider = "google", .messages = 200}, {1.10, 1.05}},
        {"turn_google_2000", "Google (TLS), 2,000 messages", {.provider = "google", .messages = 2000}, {1.03, 1.01}},
    };
    for (const TurnRow& row : table) {
        rows.push_back(compareTurns(runner, row.key, row.what, row.kind, row.goal));
    }
    const TurnKind plain{};
    rows.push_back(compareCosts(runner, "stream_plain", "an answer of 4,000 pieces over libcurl alone: plain HTTP",
                                takeTurn("streamed-turn", plain), takeTurn("streamed-turn-floor", plain), {2, 1.4}));
    const TurnKind encrypted{.provider = "deepseek"};
    rows.push_back(compareCosts(runner, "stream_tls", "an answer of 4,000 pieces over libcurl alone: DeepSeek (TLS)",
                                takeTurn("streamed-turn", encrypted), takeTurn("streamed-turn-floor", encrypted),
                                {2, 1.4}));
    const TurnKind changed{.tables = 1000};
    rows.push_back(compareCosts(runner, "turn_after_change",
                                "the first turn after \"user_instructions\" changed, over libcurl alone: 1,000 tables",
                                takeTurn("turn-after-change", changed), takeTurn("turn-floor", changed), {}));
    rows.push_back(
        compareCosts(runner, "google_over_deepseek", "a turn with Google over one with DeepSeek, 2,000 messages",
                     takeTurn("turn", {.provider = "google", .messages = kLongConversation}),
                     takeTurn("turn", {.provider = "deepseek", .messages = kLongConversation}), {1.15, std::nullopt}));
}

/// The growth of the heap in a turn, in lengths of its body.
BenchRow compareGrowth(CaseRunner& runner, std::string key, const std::string& what, const TurnKind& kind) {
    auto ours = runner.obtainMemory(takeTurn("turn", kind));
    auto floor = runner.obtainMemory(takeTurn("turn-floor", kind));
    BenchRow row = showNumber(std::move(key), "peak growth of the heap in a turn, in bodies: " + what,
                              ours["heap_growth"] / ours["body_bytes"], {0.20, 0.13});
    row.floor = formatValue(floor["heap_growth"] / floor["body_bytes"]);
    return row;
}

void measureTurnResources(CaseRunner& runner, std::vector<BenchRow>& rows) {
    const BenchCase shortTurn = takeTurn("turn", {});
    const BenchCase longTurn = takeTurn("turn", {.messages = kLongConversation});
    const BenchCase longFloor = takeTurn("turn-floor", {.messages = kLongConversation});
    rows.push_back(showNumber("system_calls", "system calls in a turn, 2 messages", runner.obtainSystemCalls(shortTurn),
                              {18, 12}));
    rows.back().floor = formatValue(runner.obtainSystemCalls(takeTurn("turn-floor", {})));
    rows.back().isTimed = true;

    const double allocations = runner.obtainMemory(longTurn)["allocations"];
    rows.push_back(showNumber("allocations", "allocations in a turn, 2,000 messages", allocations, {63, 45}));
    rows.back().floor = formatCount(runner.obtainMemory(longFloor)["allocations"]);
    rows.push_back(showNumber("more_allocations", "allocations that 2,000 messages take more than 2",
                              std::max(0.0, allocations - runner.obtainMemory(shortTurn)["allocations"]),
                              {std::nullopt, 0}));

    rows.push_back(compareGrowth(runner, "heap_growth", "2,000 messages", {.messages = kLongConversation}));
    rows.push_back(compareGrowth(runner, "heap_growth_tables", "2 messages, 10,000 tables", {.tables = kTables}));
}

void measureHistory(CaseRunner& runner, std::vector<BenchRow>& rows) {
    auto held = runner.obtainMemory({.name = "history-memory", .arguments = {std::to_string(kLongConversation)}});
    rows.push_back(showNumber("memory_restored", "memory held a byte of a restored history of 2,000 messages",
                              held["restored_bytes"] / held["restored_text_bytes"], {1.25, 1.1}));
    rows.push_back(showNumber("memory_grown",
                              "memory held a byte of a history made by turns, the most up to 2,000 messages",
                              held["grown_bytes"] / held["grown_text_bytes"], {1.25, 1.1}));
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
                                takeSize("serialization-floor", kLongConversation, 5), {1.1, 1.0}));
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
    rows.push_back(showNumber("size", "libkai.so and libcf.so, stripped, together", kai + cf, {300, 250}, " KB"));
    rows.back().ours = formatValue(kai) + " + " + formatValue(cf);
}

}  // namespace

std::vector<BenchRow> measureRows(CaseRunner& runner, bool isQuick) {
    std::vector<BenchRow> rows;
    measureTurns(runner, rows);
    measureTurnResources(runner, rows);
    measureHistory(runner, rows);
    measureConnections(runner, rows);
    measureTexts(runner, rows, isQuick);
    measureCreationAndSize(runner, rows);
    return rows;
}
