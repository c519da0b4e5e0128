#include "emulator_script.h"

KAIEmulatedAnswer KAIEmulatorScript::decide(KAIEmulatedTurn turn) {
    turn.number = ++m_turnCount;
    KAIEmulatedAnswer answer = findAnswer(turn);
    if (!answer.stream) {
        answer.stream = m_stream;
    }
    return answer;
}

KAIEmulatedAnswer KAIEmulatorScript::findAnswer(const KAIEmulatedTurn& turn) {
    if (!m_queue.empty()) {
        KAIEmulatedAnswer answer = std::move(m_queue.front());
        m_queue.pop_front();
        return answer;
    }
    return m_function ? m_function(turn) : answerByScenario(m_scenario, turn);
}
