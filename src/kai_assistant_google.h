#ifndef KAI_ASSISTANT_GOOGLE_H
#define KAI_ASSISTANT_GOOGLE_H

#include "kai_assistant_chat.h"

/// An assistant of the Google Generative Language API (Gemini): one call of "generateContent" or
/// "streamGenerateContent" per turn.
class KAIAssistant_GOOGLE : public kai::ChatAssistant {
public:
    KAIAssistant_GOOGLE(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                        const std::string& apiKey);
};

namespace kai {

/// The service's differences from other chat-completion providers.
const ChatProtocol& obtainGoogleProtocol();

}  // namespace kai

#endif
