#ifndef FUZZ_TURN_OPENAI_H
#define FUZZ_TURN_OPENAI_H

#include <string_view>

/// A conversation with an OpenAI assistant, from its creation to its end, in which one request is answered with the
/// input. The first byte chooses which one, the second the form of the reply (makeFuzzedReply), the rest is sent.
void runOpenAITurn(std::string_view input);

#endif
