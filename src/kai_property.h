#ifndef KAI_PROPERTY_H
#define KAI_PROPERTY_H

#include <string>
#include <variant>

#include "cf/json.h"
#include "cf/variant.h"
#include "kai_assistant_settings.h"

class KAIAssistantProperties;

namespace kai {

/// The value of a setting in a session's text, copied out of the document; std::monostate if the member is missing or
/// has another type than the property.
using SavedValue = std::variant<std::monostate, std::string, double, CMVariantMap>;

/// Whether a key that is set is recorded as assigned.
enum class Recording { Never = 1, Always };

/// One property: everything that the library does with a key. A key in a table of properties works everywhere; an
/// incomplete row does not compile (see isComplete).
struct Property {
    const char* key;
    /// The description of its type.
    std::string (*describe)();
    CMVariant (*read)(const KAIAssistantProperties& properties);
    Recording recording;
    /// Sets a value that comes from the host.
    /// @return false if the value is refused; the settings are then unchanged
    bool (*set)(AssistantSettings& settings, const CMVariant& value);
    /// Copies the value unchecked from settings in which the host assigned the key, and records the key.
    void (*takeOver)(const Property& property, AssistantSettings& target, const AssistantSettings& source);
    /// Copies the value to other properties. Called if the host assigned the key in `source`.
    void (*copy)(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source);
    /// Writes the value into a session's text.
    void (*write)(COJsonWriter& writer, const char* key, const AssistantSettings& settings);
    /// Reads the value from a session's text.
    SavedValue (*readSaved)(const COJsonValue& value);
    /// Restores a value that readSaved returned.
    void (*restore)(const Property& property, AssistantSettings& settings, SavedValue value);
};

/// Whether a row has all members.
constexpr bool isComplete(const Property& row) {
    return row.key != nullptr && row.describe != nullptr && row.read != nullptr && row.recording != Recording{} &&
           row.set != nullptr && row.takeOver != nullptr && row.copy != nullptr && row.write != nullptr &&
           row.readSaved != nullptr && row.restore != nullptr;
}

template <class Rows>
constexpr bool areComplete(const Rows& rows) {
    for (const Property& row : rows) {
        if (!isComplete(row)) {
            return false;
        }
    }
    return true;
}

/// Sets a property as a host does: records its key, and accepts or refuses the value.
bool setByRule(const Property& property, AssistantSettings& settings, const CMVariant& value);

// The functions that rows are made of.

std::string describeText();
std::string describeNumber();

const AssistantSettings& obtainSettings(const KAIAssistantProperties& properties) noexcept;

template <class Value>
const Value& lookAt(const Value& value) noexcept {
    return value;
}
template <class Value>
const Value& lookAt(const Shared<Value>& value) noexcept {
    return *value;
}

template <auto field>
CMVariant readField(const KAIAssistantProperties& properties) {
    return lookAt(obtainSettings(properties).*field);
}

template <auto field>
void takeOverField(const Property& property, AssistantSettings& target, const AssistantSettings& source) {
    target.*field = source.*field;
    target.assignedKeys.insert(property.key);
}
void takeOverNothing(const Property& property, AssistantSettings& target, const AssistantSettings& source);

/// Sets the target's property with the same key, by the target's own rules.
void copyByRule(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source);
/// Copies the value unchecked.
void copyAsItIs(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source);
void copyNothing(const Property& property, KAIAssistantProperties& target, KAIAssistantProperties& source);

template <auto field>
void writeText(COJsonWriter& writer, const char* key, const AssistantSettings& settings) {
    writer.writeMember(key, lookAt(settings.*field));
}
void writeNothing(COJsonWriter& writer, const char* key, const AssistantSettings& settings);

SavedValue readSavedText(const COJsonValue& value);
SavedValue readSavedNumber(const COJsonValue& value);
SavedValue readSavedNothing(const COJsonValue& value);

/// Sets the value as a host does.
void restoreByRule(const Property& property, AssistantSettings& settings, SavedValue value);

}  // namespace kai

#endif
