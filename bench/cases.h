#ifndef BENCH_CASES_H
#define BENCH_CASES_H

#include <cstddef>
#include <string>

#include "meter.h"

// What is measured. "Floor" is what no implementation can go below, made without the library.

/// One turn of a conversation of that many messages.
void measureTurn(Meter& meter, const std::string& provider, std::size_t messages);
/// libcurl alone sending the same bytes and receiving the same reply.
void measureTurnFloor(Meter& meter, const std::string& provider, std::size_t messages);
/// Notes the connections and TLS handshakes of 100 turns. Measures nothing.
void countConnections(const std::string& provider);
/// The first turn of a process over TLS, or that of the second assistant.
void measureFirstTurn(Meter& meter, bool isSecondAssistant);
/// An assistant created and freed, without a request.
void measureCreation(Meter& meter, const std::string& provider);

/// The instructions for the model with a database of that many tables.
void measureStatements(Meter& meter, std::size_t tables);
/// The JSON engine doing that conversion on demand.
void measureStatementsFloor(Meter& meter, std::size_t tables);
void measureSerialization(Meter& meter, std::size_t messages);
/// A plain copy of the session's text.
void measureSerializationFloor(Meter& meter, std::size_t messages);
void measureRestoration(Meter& meter, std::size_t messages);
/// The JSON engine reading the session's text into its own tree.
void measureRestorationFloor(Meter& meter, std::size_t messages);
/// A reply of that many bytes read, up to the answer's text.
void measureReply(Meter& meter, std::size_t bytes);
/// The JSON engine reading that reply.
void measureReplyFloor(Meter& meter, std::size_t bytes);

#endif
