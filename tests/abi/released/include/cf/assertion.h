#ifndef CF_ASSERTION_H
#define CF_ASSERTION_H

#include "cf/export.h"

/// Receives a failed internal check.
/// @param condition   the text of the condition that did not hold; valid during the call
/// @param sourceFile  the repository-relative path of the check ("src/kai_session_google.cpp"); valid during the call
/// @param line        the line of the check in that file, from 1
using CFAssertionHandler = void (*)(const char* condition, const char* sourceFile, int line);

/// Replaces the process-wide assertion handler.
///
/// Execution goes on after the handler returns: every check is followed by a guard that refuses softly, so a handler
/// may log, count or stop in a debugger. The handler runs on the thread whose check failed.
/// @param handler  the new handler; null restores the default, which writes one line to standard error
CF_EXPORT void cfSetAssertionHandler(CFAssertionHandler handler);

/// Reports a failed check to the current handler. Called by CF_ASSERT; call it directly where the place of the check
/// is data. Any thread.
CF_EXPORT void cfReportAssertion(const char* condition, const char* sourceFile, int line);

/// Checks an internal invariant: reports the condition's text and place when it does not hold, then goes on.
/// Compiled out (the condition is not evaluated) where CF_NO_ASSERTIONS is defined.
///
/// CF_ASSERT_AT does the same for a check whose text and place are data.
#ifdef CF_NO_ASSERTIONS
#define CF_ASSERT(condition) static_cast<void>(sizeof(!(condition)))
#define CF_ASSERT_AT(condition, text, sourceFile, line) \
    static_cast<void>(sizeof((condition) ? 0 : (cfReportAssertion(text, sourceFile, line), 0)))
#else
#define CF_ASSERT_AT(condition, text, sourceFile, line) \
    ((condition) ? static_cast<void>(0) : cfReportAssertion(text, sourceFile, line))
#define CF_ASSERT(condition) ((condition) ? static_cast<void>(0) : cfReportAssertion(#condition, __FILE__, __LINE__))
#endif

#endif
