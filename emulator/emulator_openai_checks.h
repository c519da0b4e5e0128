#ifndef KAI_EMULATOR_OPENAI_CHECKS_H
#define KAI_EMULATOR_OPENAI_CHECKS_H

#include <string>
#include <vector>

#include "emulator_turn.h"

// Each of these throws KAIRefusal for what the service refuses.

/// The body of a request as an object. An absent body is an empty object.
[[nodiscard]] KAIEmulatorJson readOpenAIBody(const LoopbackRequest& request);

void checkOpenAIAssistant(const KAIEmulatorJson& body);
void checkOpenAIThread(const KAIEmulatorJson& body);
void checkOpenAIMessage(const KAIEmulatorJson& body);
void checkOpenAIRun(const KAIEmulatorJson& body);
/// Checks a change of an existing thread.
void checkOpenAIThreadChange(const KAIEmulatorJson& body);
/// Checks a change of an existing message or run: only its metadata may change.
void checkOpenAIMetadata(const KAIEmulatorJson& body);
void checkOpenAIToolOutputs(const KAIEmulatorJson& body);

/// A required member, as text.
[[nodiscard]] std::string readRequiredText(const KAIEmulatorJson& body, const char* name);
/// The texts of a message's content, which is a string or an array of text items.
[[nodiscard]] std::vector<std::string> readContentTexts(const KAIEmulatorJson& content);
/// The page that the query requests, of a list of objects with ids, oldest first.
[[nodiscard]] KAIEmulatorJson writeOpenAIList(std::vector<KAIEmulatorJson> objects, const LoopbackRequest& request);

#endif
