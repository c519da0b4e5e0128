// Reads scenario files. The format is described in README.md.

#include <regex.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "emulator_scenario.h"
#include "emulator_service.h"

namespace {

// The current position in the file, for error messages.
class Place {
public:
    Place(std::string name, std::string path) : m_name(std::move(name)), m_path(std::move(path)) {}
    [[nodiscard]] Place enter(const std::string& member) const {
        return {m_name, m_path.empty() ? member : m_path + "." + member};
    }
    [[nodiscard]] Place enter(std::size_t index) const { return {m_name, m_path + "[" + std::to_string(index) + "]"}; }
    [[noreturn]] void fail(const std::string& what) const {
        throw KAIScenarioError(m_name + ": " + (m_path.empty() ? "" : m_path + ": ") + what);
    }

private:
    std::string m_name;
    std::string m_path;
};

void checkMembers(const KAIEmulatorJson& object, const Place& place, const std::vector<std::string>& known) {
    if (!object.is_object()) {
        place.fail("must be an object");
    }
    for (const auto& [name, value] : object.items()) {
        if (std::ranges::find(known, name) == known.end()) {
            std::string all;
            for (const auto& each : known) {
                all.append(all.empty() ? "" : ", ").append(each);
            }
            place.fail("\"" + name + "\" is not known here; use one of: " + all);
        }
    }
}

std::string readText(const KAIEmulatorJson& value, const Place& place) {
    if (!value.is_string()) {
        place.fail("must be a string");
    }
    return value.get<std::string>();
}

// A string, or an array of lines.
std::string readLines(const KAIEmulatorJson& value, const Place& place) {
    if (!value.is_array()) {
        if (!value.is_string()) {
            place.fail("must be a string or an array of strings, one a line");
        }
        return value.get<std::string>();
    }
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        text += (i == 0 ? "" : "\n") + readText(value[i], place.enter(i));
    }
    return text;
}

std::size_t readCount(const KAIEmulatorJson& value, const Place& place, std::size_t least = 0) {
    if (!value.is_number_unsigned() || value.get<std::size_t>() < least) {
        place.fail("must be a whole number of at least " + std::to_string(least));
    }
    return value.get<std::size_t>();
}

bool readFlag(const KAIEmulatorJson& value, const Place& place) {
    if (!value.is_boolean()) {
        place.fail("must be true or false");
    }
    return value.get<bool>();
}

template <typename Value, std::size_t count>
Value readWord(const KAIEmulatorJson& value, const Place& place,
               const std::array<std::pair<std::string_view, Value>, count>& words) {
    const std::string text = readText(value, place);
    std::string all;
    for (const auto& [word, meaning] : words) {
        if (word == text) {
            return meaning;
        }
        all.append(all.empty() ? "" : ", ").append(word);
    }
    place.fail("\"" + text + "\" is not known here; use one of: " + all);
}

void checkPattern(const std::string& pattern, const Place& place) {
    regex_t compiled;
    const int error = regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        std::array<char, 128> reason{};
        regerror(error, &compiled, reason.data(), reason.size());
        place.fail("not a regular expression (" + std::string(reason.data()) + ")");
    }
    regfree(&compiled);
}

void readWhen(const KAIEmulatorJson& when, const Place& place, KAIScenarioRule& rule) {
    checkMembers(when, place, {"contains", "matches", "history"});
    for (const auto& [name, value] : when.items()) {
        const Place here = place.enter(name);
        if (name == "contains") {
            rule.contains = readText(value, here);
        } else if (name == "matches") {
            rule.matches = readText(value, here);
            checkPattern(*rule.matches, here);
        } else {
            rule.history = readCount(value, here);
        }
    }
}

// A rule's changes to the finished reply.
struct Delivery {
    std::optional<std::string> body{};
    std::size_t blankLines = 0;
    std::optional<LoopbackFault> fault{};
    std::optional<std::size_t> faultAt{};
    std::optional<std::chrono::milliseconds> stallLimit{};
    std::size_t dripBytes = 0;
    std::chrono::milliseconds dripInterval{1};
    bool isCompressed = false;
    std::optional<LoopbackFraming> framing{};

    void operator()(LoopbackReply& reply) const {
        if (body) {
            reply.body = *body;
            reply.pieces.clear();
        }
        (reply.pieces.empty() ? reply.body : reply.pieces.front()).insert(0, blankLines, '\n');
        if (fault) {
            reply.fault = *fault;
            reply.faultAt = faultAt;
            reply.faultAfterPieces.reset();
        }
        reply.stallLimit = stallLimit.value_or(reply.stallLimit);
        reply.dripBytes = dripBytes;
        reply.dripInterval = dripInterval;
        reply.isCompressed = isCompressed;
        reply.framing = framing.value_or(reply.framing);
    }
};

void readDrip(const KAIEmulatorJson& drip, const Place& place, Delivery& delivery) {
    checkMembers(drip, place, {"bytes", "every_ms"});
    if (!drip.contains("bytes") || !drip.contains("every_ms")) {
        place.fail("needs \"bytes\" and \"every_ms\"");
    }
    delivery.dripBytes = readCount(drip["bytes"], place.enter("bytes"), 1);
    delivery.dripInterval = std::chrono::milliseconds(readCount(drip["every_ms"], place.enter("every_ms")));
}

LoopbackFault readFault(const KAIEmulatorJson& value, const Place& place) {
    return readWord<LoopbackFault, 6>(value, place,
                                      {{{"close_before_reply", LoopbackFault::CloseBeforeReply},
                                        {"reset_before_reply", LoopbackFault::ResetBeforeReply},
                                        {"stall_before_reply", LoopbackFault::StallBeforeReply},
                                        {"cut_in_body", LoopbackFault::CutInBody},
                                        {"reset_in_body", LoopbackFault::ResetInBody},
                                        {"stall_in_body", LoopbackFault::StallInBody}}});
}

LoopbackFraming readFraming(const KAIEmulatorJson& value, const Place& place) {
    return readWord<LoopbackFraming, 3>(value, place,
                                        {{{"content_length", LoopbackFraming::ContentLength},
                                          {"chunked", LoopbackFraming::Chunked},
                                          {"until_close", LoopbackFraming::UntilClose}}});
}

void readDelivery(const KAIEmulatorJson& delivered, const Place& place, KAIEmulatedAnswer& answer) {
    checkMembers(delivered, place, {"body", "blank_lines", "fault", "fault_at", "stall_ms", "drip", "gzip", "framing"});
    Delivery delivery;
    for (const auto& [name, value] : delivered.items()) {
        const Place here = place.enter(name);
        if (name == "body") {
            delivery.body = readLines(value, here);
        } else if (name == "blank_lines") {
            delivery.blankLines = readCount(value, here);
        } else if (name == "fault") {
            delivery.fault = readFault(value, here);
        } else if (name == "fault_at") {
            delivery.faultAt = readCount(value, here);
        } else if (name == "stall_ms") {
            delivery.stallLimit = std::chrono::milliseconds(readCount(value, here));
        } else if (name == "drip") {
            readDrip(value, here, delivery);
        } else if (name == "gzip") {
            delivery.isCompressed = readFlag(value, here);
        } else {
            delivery.framing = readFraming(value, here);
        }
    }
    answer.change = delivery;
}

KAIEmulatedChoice readChoice(const KAIEmulatorJson& value, const Place& place) {
    if (!value.is_object()) {
        return {.parts = {readLines(value, place)}};
    }
    checkMembers(value, place, {"text", "parts", "reasoning", "finish_reason"});
    KAIEmulatedChoice choice;
    for (const auto& [name, member] : value.items()) {
        const Place here = place.enter(name);
        if (name == "text") {
            choice.parts.push_back(readLines(member, here));
        } else if (name == "reasoning") {
            choice.reasoning = readLines(member, here);
        } else if (name == "finish_reason") {
            choice.finishReason = readText(member, here);
        } else if (!member.is_array()) {
            here.fail("must be an array of strings");
        } else {
            for (std::size_t i = 0; i < member.size(); ++i) {
                choice.parts.push_back(readLines(member[i], here.enter(i)));
            }
        }
    }
    return choice;
}

KAIRefusal readRefusal(const KAIEmulatorJson& refused, const Place& place) {
    checkMembers(refused, place, {"status", "message", "type", "code"});
    KAIRefusal refusal{.message = "This is refused by the scenario."};
    for (const auto& [name, value] : refused.items()) {
        const Place here = place.enter(name);
        if (name == "status") {
            refusal.status = static_cast<int>(readCount(value, here, 100));
        } else if (name == "message") {
            refusal.message = readLines(value, here);
        } else {
            (name == "type" ? refusal.type : refusal.code) = readText(value, here);
        }
    }
    if (refusal.status > 999) {
        place.enter("status").fail("must be a number of three digits");
    }
    return refusal;
}

void readRun(const KAIEmulatorJson& run, const Place& place, KAIEmulatedAnswer& answer) {
    checkMembers(run, place, {"states", "error"});
    if (const auto states = run.find("states"); states != run.end()) {
        const Place here = place.enter("states");
        if (!states->is_array() || states->empty()) {
            here.fail("must be an array of at least one string");
        }
        for (std::size_t i = 0; i < states->size(); ++i) {
            answer.runStates.push_back(readText((*states)[i], here.enter(i)));
        }
    }
    if (const auto error = run.find("error"); error != run.end()) {
        const Place here = place.enter("error");
        checkMembers(*error, here, {"code", "message"});
        for (const auto& [name, value] : error->items()) {
            (name == "code" ? answer.runError.first : answer.runError.second) = readText(value, here.enter(name));
        }
    }
}

// Reads what happens to the connection of a stream.
void readCut(const KAIEmulatorJson& cut, const Place& place, KAIEmulatedStream& stream) {
    checkMembers(cut, place, {"after", "fault", "stall_ms"});
    stream.fault = LoopbackFault::CutInBody;
    for (const auto& [name, value] : cut.items()) {
        const Place here = place.enter(name);
        if (name == "after") {
            stream.faultAfter = readCount(value, here);
        } else if (name == "stall_ms") {
            stream.stallLimit = std::chrono::milliseconds(readCount(value, here));
        } else if (stream.fault = readFault(value, here); stream.fault < LoopbackFault::CutInBody) {
            here.fail("must be a fault in the body");
        }
    }
}

KAIEmulatedStream readStream(const KAIEmulatorJson& written, const Place& place) {
    checkMembers(written, place, {"piece_characters", "every_ms", "keep_alives", "fail", "cut", "without_end"});
    KAIEmulatedStream stream;
    for (const auto& [name, value] : written.items()) {
        const Place here = place.enter(name);
        if (name == "piece_characters") {
            stream.pieceCharacters = readCount(value, here, 1);
        } else if (name == "every_ms") {
            stream.interval = std::chrono::milliseconds(readCount(value, here));
        } else if (name == "keep_alives") {
            stream.keepAlives = readCount(value, here);
        } else if (name == "cut") {
            readCut(value, here, stream);
        } else if (name == "without_end") {
            stream.isEndLeftOut = readFlag(value, here);
        } else {
            KAIEmulatorJson refusal = value;
            if (const auto* after = findMember(value, "after")) {
                stream.failAfter = readCount(*after, here.enter("after"));
                refusal.erase("after");
            }
            stream.failure = readRefusal(refusal, here);
        }
    }
    return stream;
}

KAIScenarioRule readRule(const KAIEmulatorJson& written, const Place& place) {
    checkMembers(written, place,
                 {"when", "times", "answer", "choices", "refuse", "run", "delivery", "stream", "comment"});
    KAIScenarioRule rule;
    for (const auto& [name, value] : written.items()) {
        const Place here = place.enter(name);
        if (name == "when") {
            readWhen(value, here, rule);
        } else if (name == "times") {
            rule.times = readCount(value, here, 1);
        } else if (name == "answer") {
            rule.answer.choices = {readChoice(value, here)};
        } else if (name == "refuse") {
            rule.answer.refusal = readRefusal(value, here);
        } else if (name == "run") {
            readRun(value, here, rule.answer);
        } else if (name == "stream") {
            rule.answer.stream = readStream(value, here);
        } else if (name == "delivery") {
            readDelivery(value, here, rule.answer);
        } else if (name == "choices") {
            if (!value.is_array()) {
                here.fail("must be an array");
            }
            for (std::size_t i = 0; i < value.size(); ++i) {
                rule.answer.choices.push_back(readChoice(value[i], here.enter(i)));
            }
        }
    }
    const auto isWritten = [&](const char* name) { return written.contains(name); };
    const auto outcomes = {"answer", "choices", "refuse", "run", "delivery"};
    if (std::ranges::none_of(outcomes, isWritten)) {
        place.fail("says nothing of an answer; give it one of: answer, choices, refuse, run, delivery");
    }
    if (written.contains("answer") + written.contains("choices") + written.contains("refuse") > 1) {
        place.fail("only one of \"answer\", \"choices\" and \"refuse\" can stand in a rule");
    }
    return rule;
}

KAIEmulatedModel readModel(const KAIEmulatorJson& value, const Place& place) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    const auto name = value.is_object() ? value.find("name") : value.end();
    if (!value.is_object() || name == value.end()) {
        place.fail("must be a string, or an object with a \"name\"");
    }
    KAIEmulatedModel model(readText(*name, place.enter("name")));
    if (const auto members = value.find("members"); members != value.end()) {
        checkMembers(value, place, {"name", "members"});
        if (!members->is_object()) {
            place.enter("members").fail("must be an object");
        }
        model.members = *members;
    }
    return model;
}

std::string describePosition(std::string_view text, std::size_t byte) {
    const auto before = text.substr(0, std::min(text.size(), byte == 0 ? 0 : byte - 1));
    const auto lines = static_cast<std::size_t>(std::ranges::count(before, '\n'));
    const auto lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(before.size() - lineStart + 1);
}

KAIEmulatorJson parse(std::string_view text, const std::string& name) {
    try {
        return KAIEmulatorJson::parse(text);
    } catch (const KAIEmulatorJson::parse_error& error) {
        throw KAIScenarioError(name + ": " + describePosition(text, error.byte) +
                               ": this is not JSON; correct it there or just before");
    }
}

}  // namespace

KAIScenario readScenario(std::string_view text, const std::string& name) {
    const KAIEmulatorJson written = parse(text, name);
    const Place place(name, "");
    checkMembers(written, place, {"provider", "models", "rules", "comment"});
    KAIScenario scenario;
    for (const auto& [member, value] : written.items()) {
        const Place here = place.enter(member);
        if (member == "provider") {
            scenario.provider = readText(value, here);
        } else if (member != "comment" && !value.is_array()) {
            here.fail("must be an array");
        } else if (member == "models") {
            for (std::size_t i = 0; i < value.size(); ++i) {
                scenario.models.push_back(readModel(value[i], here.enter(i)));
            }
        } else if (member == "rules") {
            for (std::size_t i = 0; i < value.size(); ++i) {
                scenario.rules.push_back(readRule(value[i], here.enter(i)));
            }
        }
    }
    return scenario;
}

KAIScenario readScenarioFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || std::filesystem::is_directory(path)) {
        throw KAIScenarioError(path + ": cannot be read; check the name and its permissions");
    }
    return readScenario(text.str(), path);
}
