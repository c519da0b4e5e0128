#include "emulator_openai_checks.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <span>

#include "emulator_service.h"

namespace {

enum class Kind : std::uint8_t { Text, Number, Object, Array, Flag, Anything };

struct Member {
    std::string_view name;
    Kind kind = Kind::Anything;
    double most = std::numeric_limits<double>::max();  // for a text: characters; for a number: its value, from 0
};

constexpr double kLongestText = 256'000;

constexpr Member kAssistantMembers[] = {{"model", Kind::Text},
                                        {"name", Kind::Text, 256},
                                        {"description", Kind::Text, 512},
                                        {"instructions", Kind::Text, kLongestText},
                                        {"tools", Kind::Array},
                                        {"tool_resources", Kind::Object},
                                        {"metadata", Kind::Object},
                                        {"temperature", Kind::Number, 2},
                                        {"top_p", Kind::Number, 1},
                                        {"response_format"},
                                        {"reasoning_effort", Kind::Text}};
constexpr Member kThreadMembers[] = {
    {"messages", Kind::Array}, {"tool_resources", Kind::Object}, {"metadata", Kind::Object}};
constexpr Member kThreadChanges[] = {{"tool_resources", Kind::Object}, {"metadata", Kind::Object}};
constexpr Member kMetadata[] = {{"metadata", Kind::Object}};
constexpr Member kToolOutputs[] = {{"tool_outputs", Kind::Array}, {"stream", Kind::Flag}};
constexpr Member kMessageMembers[] = {
    {"role", Kind::Text}, {"content"}, {"attachments", Kind::Array}, {"metadata", Kind::Object}};
constexpr Member kRunMembers[] = {{"assistant_id", Kind::Text},
                                  {"model", Kind::Text},
                                  {"instructions", Kind::Text, kLongestText},
                                  {"additional_instructions", Kind::Text, kLongestText},
                                  {"additional_messages", Kind::Array},
                                  {"tools", Kind::Array},
                                  {"metadata", Kind::Object},
                                  {"temperature", Kind::Number, 2},
                                  {"top_p", Kind::Number, 1},
                                  {"stream", Kind::Flag},
                                  {"max_prompt_tokens", Kind::Number},
                                  {"max_completion_tokens", Kind::Number},
                                  {"truncation_strategy", Kind::Object},
                                  {"tool_choice"},
                                  {"parallel_tool_calls", Kind::Flag},
                                  {"response_format"},
                                  {"reasoning_effort", Kind::Text}};

KAIRefusal refuse(std::string message, std::string code, std::string param) {
    return {.status = 400, .message = std::move(message), .code = std::move(code), .param = std::move(param)};
}

bool isOfKind(const KAIEmulatorJson& value, Kind kind) {
    switch (kind) {
        case Kind::Text:
            return value.is_string();
        case Kind::Number:
            return value.is_number();
        case Kind::Object:
            return value.is_object();
        case Kind::Array:
            return value.is_array();
        case Kind::Flag:
            return value.is_boolean();
        default:
            return true;
    }
}

std::string describeKind(Kind kind) {
    switch (kind) {
        case Kind::Text:
            return "a string";
        case Kind::Number:
            return "a decimal";
        case Kind::Object:
            return "an object";
        case Kind::Array:
            return "an array";
        default:
            return "a boolean";
    }
}

std::string describeValue(const KAIEmulatorJson& value) {
    const std::string kind = value.type_name();
    return (kind == "object" || kind == "array" ? "an " : "a ") + kind;
}

std::size_t countCharacters(std::string_view text) {
    const auto startsCharacter = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::ranges::count_if(text, startsCharacter));
}

void checkText(const std::string& name, const std::string& text, double most) {
    const auto count = countCharacters(text);
    if (static_cast<double>(count) > most) {
        const std::string limit = std::to_string(static_cast<std::size_t>(most));
        throw refuse("Invalid '" + name + "': string too long. Expected a string with maximum length " + limit +
                         ", but got a string with length " + std::to_string(count) + " instead.",
                     "string_above_max_length", name);
    }
}

void checkNumber(const std::string& name, const KAIEmulatorJson& value, double most) {
    if (value.get<double>() > most) {
        throw refuse("Invalid '" + name + "': decimal above maximum value. Expected a value <= " +
                         KAIEmulatorJson(most).dump() + ", but got " + value.dump() + " instead.",
                     "decimal_above_max_value", name);
    }
    if (value.get<double>() < 0) {
        throw refuse("Invalid '" + name + "': decimal below minimum value. Expected a value >= 0, but got " +
                         value.dump() + " instead.",
                     "decimal_below_min_value", name);
    }
}

void checkMembers(const KAIEmulatorJson& body, std::span<const Member> known) {
    for (const auto& [name, value] : body.items()) {
        const auto member = std::ranges::find(known, name, &Member::name);
        if (member == known.end()) {
            throw refuse("Unknown parameter: '" + name + "'.", "unknown_parameter", name);
        }
        if (value.is_null()) {
            continue;
        }
        if (!isOfKind(value, member->kind)) {
            throw refuse("Invalid type for '" + name + "': expected " + describeKind(member->kind) + ", but got " +
                             describeValue(value) + " instead.",
                         "invalid_type", name);
        }
        if (member->kind == Kind::Text) {
            checkText(name, value.get<std::string>(), member->most);
        } else if (member->kind == Kind::Number) {
            checkNumber(name, value, member->most);
        }
    }
}

std::size_t readLimit(const LoopbackRequest& request) {
    const auto* text = request.findQueryParam("limit");
    if (text == nullptr) {
        return 20;
    }
    std::size_t limit = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), limit);
    if (error != std::errc{} || end != text->data() + text->size() || limit < 1 || limit > 100) {
        throw refuse("Invalid 'limit': expected an integer from 1 to 100.", "invalid_value", "limit");
    }
    return limit;
}

}  // namespace

KAIEmulatorJson readOpenAIBody(const LoopbackRequest& request) {
    if (request.body.empty()) {
        return KAIEmulatorJson::object();
    }
    if (!isJsonAnnounced(request)) {
        throw refuse("Invalid Content-Type header, expected application/json.", "", "");
    }
    auto body = parseBody(request);
    if (!body || !body->is_object()) {
        throw refuse("We could not parse the JSON body of your request.", "", "");
    }
    return *std::move(body);
}

void checkOpenAIAssistant(const KAIEmulatorJson& body) {
    checkMembers(body, kAssistantMembers);
}

void checkOpenAIThread(const KAIEmulatorJson& body) {
    checkMembers(body, kThreadMembers);
    if (const auto* messages = findMember(body, "messages"); messages != nullptr && !messages->is_null()) {
        std::ranges::for_each(*messages, checkOpenAIMessage);
    }
}

void checkOpenAIMessage(const KAIEmulatorJson& body) {
    if (!body.is_object()) {
        throw refuse("Invalid type for 'messages': expected an object.", "invalid_type", "messages");
    }
    checkMembers(body, kMessageMembers);
    const std::string role = readRequiredText(body, "role");
    if (role != "user" && role != "assistant") {
        throw refuse("Invalid value: '" + role + "'. Supported values are: 'user' and 'assistant'.", "invalid_value",
                     "role");
    }
    const auto* content = findMember(body, "content");
    if (content == nullptr || content->is_null()) {
        throw refuse("Missing required parameter: 'content'.", "missing_required_parameter", "content");
    }
    const auto texts = readContentTexts(*content);
    if (std::ranges::all_of(texts, &std::string::empty)) {
        throw refuse("Message content must be non-empty.", "invalid_value", "content");
    }
    for (const auto& text : texts) {
        checkText("content", text, kLongestText);
    }
}

void checkOpenAIRun(const KAIEmulatorJson& body) {
    checkMembers(body, kRunMembers);
    if (const auto* stream = findMember(body, "stream"); stream != nullptr && *stream == true) {
        throw refuse("This emulator does not stream.", "unsupported_value", "stream");
    }
}

void checkOpenAIThreadChange(const KAIEmulatorJson& body) {
    checkMembers(body, kThreadChanges);
}

void checkOpenAIMetadata(const KAIEmulatorJson& body) {
    checkMembers(body, kMetadata);
}

void checkOpenAIToolOutputs(const KAIEmulatorJson& body) {
    checkMembers(body, kToolOutputs);
    if (const auto* outputs = findMember(body, "tool_outputs"); outputs == nullptr || !outputs->is_array()) {
        throw refuse("Missing required parameter: 'tool_outputs'.", "missing_required_parameter", "tool_outputs");
    }
}

std::string readRequiredText(const KAIEmulatorJson& body, const char* name) {
    const auto* member = findMember(body, name);
    if (member == nullptr || !member->is_string()) {
        throw refuse("Missing required parameter: '" + std::string(name) + "'.", "missing_required_parameter", name);
    }
    return member->get<std::string>();
}

std::vector<std::string> readContentTexts(const KAIEmulatorJson& content) {
    if (content.is_string()) {
        return {content.get<std::string>()};
    }
    if (!content.is_array()) {
        throw refuse("Invalid type for 'content': expected one of a string or array of objects, but got " +
                         describeValue(content) + " instead.",
                     "invalid_type", "content");
    }
    std::vector<std::string> texts;
    for (const auto& item : content) {
        const auto* type = findMember(item, "type");
        const auto* text = findMember(item, "text");
        if (type == nullptr || *type != "text" || text == nullptr || !text->is_string()) {
            throw refuse("Invalid value for 'content': this emulator takes text only.", "invalid_value", "content");
        }
        texts.push_back(text->get<std::string>());
    }
    return texts;
}

KAIEmulatorJson writeOpenAIList(std::vector<KAIEmulatorJson> objects, const LoopbackRequest& request) {
    const auto* order = request.findQueryParam("order");
    if (order != nullptr && *order != "asc" && *order != "desc") {
        throw refuse("Invalid value: '" + *order + "'. Supported values are: 'asc' and 'desc'.", "invalid_value",
                     "order");
    }
    if (order == nullptr || *order != "asc") {
        std::ranges::reverse(objects);
    }
    const auto find = [&](const std::string& id) {
        const auto place = std::ranges::find_if(objects, [&](const auto& object) { return object.at("id") == id; });
        if (place == objects.end()) {
            throw KAIRefusal{.status = 404, .message = "No object found with id '" + id + "'."};
        }
        return place;
    };
    const auto* before = request.findQueryParam("before");
    if (before != nullptr) {
        objects.erase(find(*before), objects.end());
    }
    if (const auto* after = request.findQueryParam("after")) {
        objects.erase(objects.begin(), std::next(find(*after)));
    }
    const std::size_t limit = readLimit(request);
    const bool hasMore = objects.size() > limit;
    if (hasMore && before != nullptr) {
        // The page just before this object, not the first page of all.
        objects.erase(objects.begin(), objects.end() - static_cast<std::ptrdiff_t>(limit));
    }
    objects.resize(std::min(objects.size(), limit));
    return {{"object", "list"},
            {"data", objects},
            {"first_id", objects.empty() ? KAIEmulatorJson(nullptr) : objects.front().at("id")},
            {"last_id", objects.empty() ? KAIEmulatorJson(nullptr) : objects.back().at("id")},
            {"has_more", hasMore}};
}
