#ifndef KAI_CREATE_STATEMENT_H
#define KAI_CREATE_STATEMENT_H

#include <string>
#include <string_view>

#include "cf/json.h"

/// Is called once for each malformed place in the description of a database.
using KAIMalformedReporter = void (*)();

/// Appends the statement of one table or view; nothing when its description is malformed.
///
/// Names and types are written as they came. The columns of a key follow one another with no separator between them:
/// a deliberate saving, and hosts and their prompts count on the exact text.
void appendCreateStatement(std::string& text, std::string_view qualifier, std::string_view kind,
                           const COJsonValue& description, KAIMalformedReporter reportMalformed);

#endif
