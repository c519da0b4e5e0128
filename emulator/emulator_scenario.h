#ifndef KAI_EMULATOR_SCENARIO_H
#define KAI_EMULATOR_SCENARIO_H

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// Says in one line what is wrong with a scenario, where, and how to fix it.
class KAIScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A rule with its answer. Texts are templates until the turn is known.
struct KAIScenarioRule {
    /// All conditions that are present must hold. Texts are searched in the waiting message; case is ignored.
    std::optional<std::string> contains{};
    std::optional<std::string> matches{};  ///< POSIX extended regular expression
    std::optional<std::size_t> history{};  ///< exact number of messages before the waiting one
    std::optional<std::size_t> times{};    ///< how often the rule still applies; absent: always
    KAIEmulatedAnswer answer{};
};

struct KAIScenario {
    std::vector<KAIEmulatedModel> models{};  ///< empty: the service's own list
    std::vector<KAIScenarioRule> rules{};    ///< the first that matches answers, and decrements its `times`
    std::string provider{};                  ///< the provider it was written for; empty: any
};

/// Reads a scenario (README.md describes the format). Error messages begin with `name`. Throws KAIScenarioError.
[[nodiscard]] KAIScenario readScenario(std::string_view text, const std::string& name);
/// The same from a file.
[[nodiscard]] KAIScenario readScenarioFile(const std::string& path);

/// The answer of the first rule that matches, with its templates filled in. If none matches, a text that says so;
/// without any rules, a text with the turn's number.
[[nodiscard]] KAIEmulatedAnswer answerByScenario(KAIScenario& scenario, const KAIEmulatedTurn& turn);

#endif
