#ifndef KAI_ASSISTANT_OLLAMA_H
#define KAI_ASSISTANT_OLLAMA_H

#include "kai_assistant_chat.h"

/// An assistant of an Ollama server, by default on the local machine, over plain HTTP and without an API key.
class KAIAssistant_OLLAMA : public kai::ChatAssistant {
public:
    KAIAssistant_OLLAMA(std::unique_ptr<ICSHTTPPoolCenter> poolCenter, const std::string& host);
};

namespace kai {

/// The service's differences from other chat-completion providers.
const ChatProtocol& obtainOllamaProtocol();

}  // namespace kai

#endif
