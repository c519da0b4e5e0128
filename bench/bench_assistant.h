#ifndef BENCH_ASSISTANT_H
#define BENCH_ASSISTANT_H

#include <memory>
#include <string>

#include "bench_server.h"
#include "kai.h"

using AssistantPtr = KAIPtr<IKAIAssistant>;
using SessionPtr = KAIPtr<IKAISession>;
using MessagePtr = KAIPtr<IKAIMessage>;
using PropertiesPtr = KAIPtr<IKAIProperties>;

/// The type of a provider's name; ends the program for an unknown one.
[[nodiscard]] KAIAssistantType obtainProviderType(const std::string& provider);
/// Whether the provider is spoken to over TLS.
[[nodiscard]] bool isTLSProvider(const std::string& provider);

/// Sets one of the assistant's properties.
void setProperty(IKAIAssistant& assistant, const std::string& key, const std::string& value);

/// The process's settings, with the server's certificate trusted.
void trustServer(const BenchServer& server);

/// An assistant with a pool of its own and a model set.
[[nodiscard]] AssistantPtr createAssistant(const std::string& provider, const std::string& host);

// Each of these ends the program with the library's error text when the operation fails.

[[nodiscard]] SessionPtr createSession(IKAIAssistant& assistant);
[[nodiscard]] SessionPtr restoreSession(IKAIAssistant& assistant, std::string text);
[[nodiscard]] MessagePtr addMessage(IKAIAssistant& assistant, IKAISession& session, std::string text);

#endif
