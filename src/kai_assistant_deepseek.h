#ifndef KAI_ASSISTANT_DEEPSEEK_H
#define KAI_ASSISTANT_DEEPSEEK_H

#include "kai_assistant_chat.h"

/// An assistant of the DeepSeek chat-completions API, or of a service that speaks the same.
class KAIAssistant_DEEPSEEK : public kai::ChatAssistant {
public:
    KAIAssistant_DEEPSEEK(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host,
                          const std::string& apiKey);
};

namespace kai {

/// The API's differences from other chat-completion providers.
const ChatProtocol& obtainDeepSeekProtocol();

}  // namespace kai

#endif
