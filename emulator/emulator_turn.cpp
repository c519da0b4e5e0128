#include "emulator_turn.h"

#include <algorithm>

namespace {

const std::string nothing;

bool isFromUser(const KAIEmulatedMessage& message) {
    return message.role == "user";
}

}  // namespace

const std::string& KAIEmulatedTurn::obtainQuestion() const {
    return messages.empty() ? nothing : messages.back().text;
}

const std::string& KAIEmulatedTurn::obtainFirstQuestion() const {
    const auto found = std::ranges::find_if(messages, isFromUser);
    return found == messages.end() ? nothing : found->text;
}

std::string KAIEmulatedChoice::join() const {
    std::string text;
    for (const auto& part : parts) {
        text += part;
    }
    return text;
}

KAIEmulatedAnswer KAIEmulatedAnswer::say(std::string text) {
    return {.choices = {{.parts = {std::move(text)}}}};
}

KAIEmulatedAnswer KAIEmulatedAnswer::refuse(int status, std::string message) {
    return {.refusal = KAIRefusal{.status = status, .message = std::move(message)}};
}
