#ifndef KAI_EMULATOR_SCENARIO_H
#define KAI_EMULATOR_SCENARIO_H

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "emulator_turn.h"

/// Says in one line what is wrong with a scenario, where, and what to do.
class KAIScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a rule answers. Texts are templates until the turn is known.
struct KAIScenarioRule {
    /// All that are present must hold. Texts are looked for in the waiting message, whatever their case.
    std::optional<std::string> contains{};
    std::optional<std::string> matches{};  ///< POSIX extended regular expression
    std::optional<std::size_t> history{};  ///< exact count of messages before the waiting one
    std::optional<std::size_t> times{};    ///< how often the rule still applies; absent: always
    KAIEmulatedAnswer answer{};
};

struct KAIScenario {
    std::vector<KAIEmulatedModel> models{};  ///< empty: the service's own list
    std::vector<KAIScenarioRule> rules{};    ///< the first that fits answers; it counts its `times` down
    std::string provider{};                  ///< the provider that it was written for; empty: any
};

/// Reads a scenario (README.md describes the format). `name` stands in front of what is wrong with it.
/// Throws KAIScenarioError.
[[nodiscard]] KAIScenario readScenario(std::string_view text, const std::string& name);
/// The same from a file.
[[nodiscard]] KAIScenario readScenarioFile(const std::string& path);

/// The answer of the first rule that fits, with its templates filled in. Where none fits, a text that says so; without
/// any rule, a text with the turn's number.
[[nodiscard]] KAIEmulatedAnswer answerByScenario(KAIScenario& scenario, const KAIEmulatedTurn& turn);

#endif
