#ifndef KAI_HOST_CALLBACK_H
#define KAI_HOST_CALLBACK_H

#include <string>

namespace kai {

/// A host's callback, as KAIRegisterCallback takes it.
using HostCallback = void (*)(const char* eventName, void* data);

/// Replaces the process-wide callback; null removes it.
void setHostCallback(HostCallback callback) noexcept;

}  // namespace kai

/// Offers a message of the library to the host for translation.
/// @return the host's translation, or the text itself if there is no callback or the callback left the answer empty
std::string localizeString(const std::string& text);

#endif
