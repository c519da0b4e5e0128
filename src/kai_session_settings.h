#ifndef KAI_SESSION_SETTINGS_H
#define KAI_SESSION_SETTINGS_H

#include <utility>
#include <vector>

#include "cf/json.h"
#include "kai_assistant_properties.h"

/// The settings that stand in a session's text, for every provider.
namespace kai {

/// Writes the properties as members of the open object, those that a provider adds first.
void writeSessionSettings(COJsonWriter& writer, const KAIAssistantProperties& properties);

/// The settings of a session's text, taken out of its document: the document can be freed before they are restored, so
/// that a large structure is held as one document at a time.
using SavedSettings = std::vector<std::pair<const Property*, SavedValue>>;

/// Takes the settings out of a session's text. A member that is missing or of another type is left out.
SavedSettings readSessionSettings(const COJson& json, const KAIAssistantProperties& properties);

/// What the settings become by a session's text, each value under the rule of its property. The temperature is offered
/// as a number, which its rule refuses: a restored session keeps the assistant's temperature and only marks it as
/// assigned.
AssistantSettings restoreSettings(AssistantSettings current, SavedSettings saved);

/// The bytes that writeSessionSettings will about need.
std::size_t estimateSessionSettings(const AssistantSettings& settings);

}  // namespace kai

#endif
