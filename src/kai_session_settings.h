#ifndef KAI_SESSION_SETTINGS_H
#define KAI_SESSION_SETTINGS_H

#include "cf/json.h"
#include "kai_assistant_properties.h"

/// The settings that stand in a session's text, for every provider.

/// Writes "api_host", "model", "temperature", "user_instructions", "system_instructions" (only when there are any) and
/// "db_structure" as members of the open object.
void writeSessionSettings(COJsonWriter& writer, const KAIAssistantSettings& settings);

/// Writes the members of a session's text back into the properties, through their own rules; a member that is missing
/// or of another type leaves its property alone. The temperature is offered as a number, which the properties refuse:
/// a restored session keeps the assistant's temperature and only marks it as assigned.
void readSessionSettings(const COJson& json, KAIAssistantProperties& properties);

/// Passes a string member to the property of the same name; anything else is left alone.
void readStringSetting(const COJson& json, const char* key, KAIAssistantProperties& properties);

/// The bytes that writeSessionSettings will about need.
std::size_t estimateSessionSettings(const KAIAssistantSettings& settings);

#endif
