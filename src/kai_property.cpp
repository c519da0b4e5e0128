#include "kai_property.h"

#include <utility>

#include "kai_assistant_properties.h"

namespace kai {

bool setByRule(const Property& property, AssistantSettings& settings, const CMVariant& value) {
    if (property.recording == Recording::Always) {
        settings.assignedKeys.insert(property.key);
    }
    return property.set(settings, value);
}

std::string describeText() {
    return "string";
}

std::string describeNumber() {
    return "double";
}

const AssistantSettings& obtainSettings(const KAIAssistantProperties& properties) noexcept {
    return properties.obtainSettings();
}

void takeOverNothing(const Property& /*property*/, AssistantSettings& /*target*/, const AssistantSettings& /*source*/) {
}

void copyByRule(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source) {
    target.setProperty(property.key, source.obtainProperty(property.key));
}

void copyAsItIs(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source) {
    target.changeSettings(
        [&](AssistantSettings& settings) { property.takeOver(property, settings, source.obtainSettings()); });
}

void copyNothing(const Property& /*property*/, KAIAssistantProperties& /*target*/, KAIAssistantProperties& /*source*/) {
}

void writeNothing(COJsonWriter& /*writer*/, const char* /*key*/, const AssistantSettings& /*settings*/) {}

SavedValue readSavedText(const COJsonValue& value) {
    if (!value.isString()) {
        return {};
    }
    // Spare capacity after the text, so that a structure can be parsed in place.
    constexpr std::size_t kRoomToReadInPlace = 64;
    const std::string_view view = value.obtainString();
    std::string text;
    text.reserve(view.size() + kRoomToReadInPlace);
    text = view;
    return text;
}

SavedValue readSavedNumber(const COJsonValue& value) {
    return value.isNumber() ? SavedValue(value.obtainDouble()) : SavedValue();
}

SavedValue readSavedNothing(const COJsonValue& /*value*/) {
    return {};
}

void restoreByRule(const Property& property, AssistantSettings& settings, SavedValue value) {
    if (auto* const text = std::get_if<std::string>(&value)) {
        setByRule(property, settings, std::move(*text));
    } else if (const auto* const number = std::get_if<double>(&value)) {
        setByRule(property, settings, *number);
    }
}

}  // namespace kai
