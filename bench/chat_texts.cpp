#include "chat_texts.h"

#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMessageBytes = 300;

constexpr std::array<std::string_view, 4> kQuestions{
    "Which customers placed more than ten orders in the last quarter, and what did they spend on average? ",
    "Please leave out the orders whose status is \"cancelled\", and group what remains by month. ",
    "Now the same for M\u00fcnchen and S\u00e3o Paulo \u2014 sorted by turnover, the largest first. ",
    "Can you explain why the join on order_items returns some rows twice? I expected one row an order.\n",
};

constexpr std::array<std::string_view, 4> kAnswers{
    "Join the two tables on the customer and count the orders:\n\n```sql\nSELECT c.name, COUNT(*) AS orders\n"
    "FROM customers c JOIN orders o ON o.customer_id = c.id\nGROUP BY c.name HAVING COUNT(*) > 10;\n```\n",
    "The status is a text, so it is compared as one:\n\n```sql\nSELECT strftime('%Y-%m', o.placed_at), SUM(o.total)\n"
    "FROM orders o WHERE o.status <> 'cancelled'\nGROUP BY 1 ORDER BY 1;\n```\n",
    "Both names are in the column \"city\":\n\n```sql\nSELECT city, SUM(total) FROM sales\n"
    "WHERE city IN ('M\u00fcnchen', 'S\u00e3o Paulo')\nGROUP BY city ORDER BY 2 DESC;\n```\n",
    "An order has several items, and the join gives one row for each of them. Either count the orders with "
    "COUNT(DISTINCT o.id), or sum the items of an order in a subquery first and join its result. ",
};

constexpr std::string_view kFiller =
    "Rows without a value in that column are not counted, since NULL is equal to nothing; use COALESCE where a zero is "
    "meant. An index on the column that the rows are grouped by makes this fast on large tables, because the rows are "
    "then read in their order and need not be sorted. Nothing else has to change for that. ";

constexpr std::string_view kEscapes =
    "{\"status\":\"ok\",\"path\":\"C:\\data\\sales.db\",\"rows\":[\n\t{\"id\":1,\"city\":\"Bonn\"},\n\t{\"id\":2,"
    "\"city\":\"Ulm\"}\n]}\n";

constexpr std::string_view kLetters =
    "Какие клиенты разместили больше десяти заказов за последний квартал, и сколько они потратили в среднем? ";

/// The number, then the text over and over, cut where a character ends.
std::string repeatText(std::size_t number, std::string_view repeated) {
    std::string text = std::to_string(number) + ": ";
    while (text.size() < kMessageBytes) {
        text += repeated;
    }
    std::size_t size = kMessageBytes;
    while ((static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) {
        --size;
    }
    return text.substr(0, size);
}

}  // namespace

TextKind readTextKind(const std::string& name) {
    if (name == "plain") {
        return TextKind::Plain;
    }
    if (name == "escapes") {
        return TextKind::Escapes;
    }
    if (name == "letters") {
        return TextKind::Letters;
    }
    throw std::runtime_error("unknown kind of text: " + name);
}

std::string buildMessageText(std::size_t number, TextKind kind) {
    if (kind != TextKind::Plain) {
        return repeatText(number, kind == TextKind::Escapes ? kEscapes : kLetters);
    }
    const auto& texts = number % 2 == 0 ? kQuestions : kAnswers;
    std::string text = std::to_string(number) + ": ";
    text += texts[number / 2 % texts.size()];
    text += kFiller.substr(0, kMessageBytes - text.size());
    return text;
}

std::string buildAnswerText(std::size_t size) {
    std::string text;
    for (std::size_t number = 1; text.size() < size; number += 2) {
        text += buildMessageText(number);
    }
    return text;
}

std::string buildSessionText(std::size_t messages, TextKind kind) {
    Json list = Json::array();
    for (std::size_t number = 0; number < messages; ++number) {
        list.push_back({{"role", number % 2 == 0 ? "user" : "assistant"}, {"content", buildMessageText(number, kind)}});
    }
    return Json{{"messages", list}}.dump();
}

std::string buildReplyBody(const std::string& path, const std::string& answer) {
    if (path.ends_with("/api/chat")) {
        return Json{{"model", "bench"},
                    {"created_at", "2025-01-01T00:00:00.000000000Z"},
                    {"message", {{"role", "assistant"}, {"content", answer}}},
                    {"done_reason", "stop"},
                    {"done", true},
                    {"total_duration", 1234567890},
                    {"eval_count", 290}}
            .dump();
    }
    const Json usage{{"prompt_tokens", 1200}, {"completion_tokens", 290}, {"total_tokens", 1490}};
    if (path.ends_with(":generateContent")) {
        const Json content{{"parts", Json::array({{{"text", answer}}})}, {"role", "model"}};
        return Json{{"candidates", Json::array({{{"content", content}, {"finishReason", "STOP"}, {"index", 0}}})},
                    {"usageMetadata", usage},
                    {"modelVersion", "bench"}}
            .dump();
    }
    const Json message{{"role", "assistant"}, {"content", answer}};
    return Json{{"id", "f0e1d2c3-b4a5-4697-8877-665544332211"},
                {"object", "chat.completion"},
                {"created", 1735689600},
                {"model", "bench"},
                {"choices", Json::array({{{"index", 0}, {"message", message}, {"finish_reason", "stop"}}})},
                {"usage", usage}}
        .dump();
}

std::vector<std::string> buildReplyPieces(const std::string& path, std::size_t words) {
    const bool isOllama = path.ends_with("/api/chat");
    std::vector<std::string> pieces;
    for (std::size_t number = 0; number <= words; ++number) {
        const bool isLast = number == words;
        const std::string word = isLast ? "" : number % 10 == 9 ? "\n" : " table" + std::to_string(number % 10);
        if (isOllama) {
            pieces.push_back(Json{{"model", "bench"},
                                  {"created_at", "2025-01-01T00:00:00.000000000Z"},
                                  {"message", {{"role", "assistant"}, {"content", word}}},
                                  {"done", isLast}}
                                 .dump() +
                             '\n');
        } else {
            const Json delta{
                {"index", 0}, {"delta", {{"content", word}}}, {"finish_reason", isLast ? Json("stop") : Json(nullptr)}};
            pieces.push_back("data: " +
                             Json{{"id", "f0e1d2c3-b4a5-4697-8877-665544332211"},
                                  {"object", "chat.completion.chunk"},
                                  {"created", 1735689600},
                                  {"model", "bench"},
                                  {"choices", Json::array({delta})}}
                                 .dump() +
                             "\n\n");
        }
    }
    if (!isOllama) {
        pieces.emplace_back("data: [DONE]\n\n");
    }
    return pieces;
}
