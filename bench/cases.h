#ifndef BENCH_CASES_H
#define BENCH_CASES_H

#include <cstddef>
#include <string>

#include "chat_texts.h"
#include "meter.h"

// What is measured. "Floor" is what no implementation can go below, made without the library.

/// What a turn is made with.
struct TurnSubject {
    std::string provider{};
    std::size_t messages = 0;          ///< of the conversation, before the turn
    std::size_t tables = 0;            ///< of the database that the assistant knows
    TextKind texts = TextKind::Plain;  ///< of the messages
    bool isFirstAfterChange = false;   ///< "user_instructions" was set since the last turn
    bool isStreamed = false;           ///< the answer comes in pieces
};

void measureTurn(Meter& meter, const TurnSubject& subject);
/// libcurl alone sending the same bytes and receiving the same reply.
void measureTurnFloor(Meter& meter, const TurnSubject& subject);
/// Notes the memory that a conversation of that many messages holds, and the bytes of its texts: one that was restored,
/// and one made by turns, there at the turn after which it holds most for its texts. Measures nothing.
void measureHistoryMemory(std::size_t messages);
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
