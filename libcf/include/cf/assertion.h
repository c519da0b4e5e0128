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
/// Execution continues after the handler returns: a guard after every check handles the failed condition. So a handler
/// may log, count or stop in a debugger. The handler runs on the thread whose check failed.
/// @param handler  the new handler; null restores the default, which writes one line to standard error
CF_EXPORT void cfSetAssertionHandler(CFAssertionHandler handler);

/// Reports a failed check to the current handler. CF_ASSERT calls it; call it directly if file and line are data. Any
/// thread.
CF_EXPORT void cfReportAssertion(const char* condition, const char* sourceFile, int line);

/// Checks an internal invariant: if it does not hold, reports the condition's text and place, and continues. Compiled
/// out (the condition is not evaluated) where CF_NO_ASSERTIONS is defined.
///
/// CF_ASSERT_AT does the same for a check whose text, file and line are arguments.
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
