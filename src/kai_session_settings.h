#ifndef KAI_SESSION_SETTINGS_H
#define KAI_SESSION_SETTINGS_H

#include <utility>
#include <vector>

#include "cf/json.h"
#include "kai_assistant_properties.h"

/// The settings in a session's text, for every provider.
namespace kai {

/// Writes the properties as members of the open object; those that a provider adds come first.
void writeSessionSettings(COJsonWriter& writer, const KAIAssistantProperties& properties);

/// The settings of a session's text, copied out of its document. The document can be freed before they are restored, so
/// only one document with a large structure is in memory at a time.
using SavedSettings = std::vector<std::pair<const Property*, SavedValue>>;

/// Reads the settings from a session's text. Members that are missing or have another type are left out.
SavedSettings readSessionSettings(const COJson& json, const KAIAssistantProperties& properties);

/// Applies saved settings, each value by the rule of its property. The temperature is passed as a number, which its
/// rule refuses: a restored session keeps the assistant's temperature and only marks it as assigned.
AssistantSettings restoreSettings(AssistantSettings current, SavedSettings saved);

/// The approximate number of bytes that writeSessionSettings writes.
std::size_t estimateSessionSettings(const AssistantSettings& settings);

}  // namespace kai

#endif
