#include "kai_session_settings.h"

namespace kai {

namespace {

template <class Visitor>
void visitInOrderOfTexts(const KAIAssistantProperties& properties, Visitor visit) {
    for (const std::span<const Property> rows :
         {properties.obtainAddedRows(), KAIAssistantProperties::obtainCommonRows()}) {
        for (const Property& row : rows) {
            visit(row);
        }
    }
}

}  // namespace

void writeSessionSettings(COJsonWriter& writer, const KAIAssistantProperties& properties) {
    visitInOrderOfTexts(properties,
                        [&](const Property& row) { row.write(writer, row.key, properties.obtainSettings()); });
}

SavedSettings readSessionSettings(const COJson& json, const KAIAssistantProperties& properties) {
    SavedSettings saved;
    visitInOrderOfTexts(properties, [&](const Property& row) {
        SavedValue value = row.readSaved(json.obtainMember(row.key));
        if (value.index() != 0) {
            saved.emplace_back(&row, std::move(value));
        }
    });
    return saved;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): its values are moved from
AssistantSettings restoreSettings(AssistantSettings current, SavedSettings saved) {
    for (auto& [property, value] : saved) {
        property->restore(*property, current, std::move(value));
    }
    return current;
}

std::size_t estimateSessionSettings(const AssistantSettings& settings) {
    constexpr std::size_t kKeysAndNumbers = 256;
    constexpr std::size_t kBytesAnInstruction = 128;
    // A database structure is JSON itself: about every sixth byte of it is a quotation mark that needs escaping.
    return kKeysAndNumbers + settings.userInstructions->size() + settings.databaseStructure->size() / 4 * 5 +
           settings.systemInstructions->size() * kBytesAnInstruction;
}

}  // namespace kai
