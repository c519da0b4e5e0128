#include "emulator_script.h"

KAIEmulatedAnswer KAIEmulatorScript::decide(KAIEmulatedTurn turn) {
    turn.number = ++m_turnCount;
    if (!m_queue.empty()) {
        KAIEmulatedAnswer answer = std::move(m_queue.front());
        m_queue.pop_front();
        return answer;
    }
    return m_function ? m_function(turn) : answerByScenario(m_scenario, turn);
}
