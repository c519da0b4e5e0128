#include "kai_host_callback.h"

#include <cstring>

#include "kai.h"

namespace {

// A plain global: hosts set it before they use the library, or while no operation runs.
kai::HostCallback s_hostCallback = nullptr;

}  // namespace

void kai::setHostCallback(HostCallback callback) noexcept {
    s_hostCallback = callback;
}

std::string localizeString(const std::string& text) {
    if (text.empty() || s_hostCallback == nullptr) {
        return text;
    }
    KAICallbackLocalizationInfo info;
    info.sourceText = text.c_str();
    s_hostCallback("KAILocalizeString", &info);
    return info.answerBuffer[0] != '\0' ? std::string(info.answerBuffer) : text;
}

KAICallbackLocalizationInfo& KAICallbackLocalizationInfo::operator=(const KAICallbackLocalizationInfo& other) {
    if (this != &other) {
        sourceText = other.sourceText;
        std::memcpy(answerBuffer, other.answerBuffer, sizeof answerBuffer);
    }
    return *this;
}

// Moving copies: the pointer is borrowed, and the buffer is part of the object.
KAICallbackLocalizationInfo& KAICallbackLocalizationInfo::operator=(KAICallbackLocalizationInfo&& other) {
    return *this = static_cast<const KAICallbackLocalizationInfo&>(other);
}
