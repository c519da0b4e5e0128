#ifndef KAI_EMULATOR_SCRIPT_H
#define KAI_EMULATOR_SCRIPT_H

#include <cstddef>
#include <deque>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "emulator_scenario.h"
#include "emulator_turn.h"

/// Decides the model's answer: a queued one, otherwise the function's, otherwise the scenario's.
class KAIEmulatorScript {
public:
    void setModels(std::vector<KAIEmulatedModel> models) { m_scenario.models = std::move(models); }
    /// Empty: the service offers its own list.
    [[nodiscard]] const std::vector<KAIEmulatedModel>& obtainModels() const { return m_scenario.models; }

    void queueAnswer(KAIEmulatedAnswer answer) { m_queue.push_back(std::move(answer)); }
    void answerWith(std::function<KAIEmulatedAnswer(const KAIEmulatedTurn&)> function) {
        m_function = std::move(function);
    }
    /// How answers without their own setting are streamed.
    void setStream(KAIEmulatedStream stream) { m_stream = std::move(stream); }
    void playScenario(KAIScenario scenario) { m_scenario = std::move(scenario); }

    /// Numbers the turn and returns its answer, which also says how it is streamed.
    [[nodiscard]] KAIEmulatedAnswer decide(KAIEmulatedTurn turn);

private:
    [[nodiscard]] KAIEmulatedAnswer findAnswer(const KAIEmulatedTurn& turn);

    std::deque<KAIEmulatedAnswer> m_queue;
    std::function<KAIEmulatedAnswer(const KAIEmulatedTurn&)> m_function;
    KAIScenario m_scenario;
    KAIEmulatedStream m_stream;
    std::size_t m_turnCount = 0;
};

#endif
