#ifndef KAI_LOCALIZATION_H
#define KAI_LOCALIZATION_H

#include <string>

/// A host's callback, as KAIRegisterCallback takes it.
using KAICallback = void (*)(const char* eventName, void* data);

/// Replaces the process-wide callback; null removes it.
void setHostCallback(KAICallback callback) noexcept;

/// Offers a message of the library to the host for translation.
/// @return the host's translation, or the text itself where there is no callback or it left the answer empty
std::string localizeString(const std::string& text);

#endif
