#include "kai_assistant_properties_openai.h"

#include "cf/assertion.h"

namespace {

using kai::AssistantSettings;
using kai::Property;
using kai::Recording;

template <auto field>
bool storeText(AssistantSettings& settings, const CMVariant& value) {
    // No guard follows the check: a value of another type is stored as its text.
    CF_ASSERT(value.getValueType() == CMVariant::ValueType::String);
    settings.*field = value.stringValue();
    return true;
}

constexpr Property kAddedRows[] = {
    {.key = "name",
     .describe = kai::describeText,
     .read = kai::readField<&AssistantSettings::name>,
     .recording = Recording::Never,
     .set = storeText<&AssistantSettings::name>,
     .takeOver = kai::takeOverField<&AssistantSettings::name>,
     .copy = kai::copyByRule,
     .write = kai::writeText<&AssistantSettings::name>,
     .readSaved = kai::readSavedText,
     .restore = kai::restoreByRule},
    {.key = "description",
     .describe = kai::describeText,
     .read = kai::readField<&AssistantSettings::description>,
     .recording = Recording::Never,
     .set = storeText<&AssistantSettings::description>,
     .takeOver = kai::takeOverField<&AssistantSettings::description>,
     .copy = kai::copyByRule,
     .write = kai::writeText<&AssistantSettings::description>,
     .readSaved = kai::readSavedText,
     .restore = kai::restoreByRule},
};
static_assert(kai::areComplete(kAddedRows));

}  // namespace

KAIAssistantProperties_OPENAI::KAIAssistantProperties_OPENAI() : KAIAssistantProperties(kAddedRows) {
    changeSettings([](AssistantSettings& settings) { settings.name = "Keltrix Assistant"; });
}
