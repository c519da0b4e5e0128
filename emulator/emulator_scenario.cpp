#include "emulator_scenario.h"

#include <regex.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace {

using Values = std::vector<std::pair<std::string_view, std::string>>;

Values describeTurn(const KAIEmulatedTurn& turn) {
    return {{"{history_count}", std::to_string(turn.countHistory())},
            {"{turn}", std::to_string(turn.number)},
            {"{model}", turn.model},
            {"{question}", turn.obtainQuestion()},
            {"{first_question}", turn.obtainFirstQuestion()},
            {"{instruction_bytes}", std::to_string(turn.instructions.size())}};
}

// One pass: placeholders inside inserted values are not replaced.
std::string fillIn(std::string_view text, const Values& values) {
    std::string result;
    while (!text.empty()) {
        const auto fits = [&](const auto& value) { return text.starts_with(value.first); };
        const auto found = std::ranges::find_if(values, fits);
        if (found == values.end()) {
            result.push_back(text.front());
            text.remove_prefix(1);
        } else {
            result.append(found->second);
            text.remove_prefix(found->first.size());
        }
    }
    return result;
}

bool isFoundIn(const std::string& text, const std::string& part) {
    const auto isSame = [](unsigned char left, unsigned char right) {
        return std::tolower(left) == std::tolower(right);
    };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), isSame) != text.end() || part.empty();
}

// POSIX matching, because the standard library's recurses with the length of the text.
bool isMatchedIn(const std::string& text, const std::string& pattern) {
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0) {
        return false;
    }
    const bool isFound = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return isFound;
}

bool doesApply(const KAIScenarioRule& rule, const KAIEmulatedTurn& turn) {
    const std::string& question = turn.obtainQuestion();
    return rule.times.value_or(1) > 0 && (!rule.history || *rule.history == turn.countHistory()) &&
           (!rule.contains || isFoundIn(question, *rule.contains)) &&
           (!rule.matches || isMatchedIn(question, *rule.matches));
}

}  // namespace

KAIEmulatedAnswer answerByScenario(KAIScenario& scenario, const KAIEmulatedTurn& turn) {
    const auto rule = std::ranges::find_if(scenario.rules, [&](const auto& each) { return doesApply(each, turn); });
    if (scenario.rules.empty()) {
        return KAIEmulatedAnswer::say("Answer " + std::to_string(turn.number) + " of the emulator.");
    }
    if (rule == scenario.rules.end()) {
        return KAIEmulatedAnswer::say("The scenario has no answer to turn " + std::to_string(turn.number) + ".");
    }
    if (rule->times) {
        --*rule->times;
    }
    const Values values = describeTurn(turn);
    KAIEmulatedAnswer answer = rule->answer;
    for (auto& choice : answer.choices) {
        for (auto& part : choice.parts) {
            part = fillIn(part, values);
        }
    }
    return answer;
}
