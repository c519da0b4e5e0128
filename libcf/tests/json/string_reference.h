#ifndef CF_TESTS_STRING_REFERENCE_H
#define CF_TESTS_STRING_REFERENCE_H

#include <string>

/// A JSON text in which each string is written anew from its characters: what is no character (a lone surrogate escape,
/// an ill-formed UTF-8 sequence) as U+FFFD, what is no escape as it is. Slow, and written from the definitions of UTF-8
/// and UTF-16 alone.
std::string rewriteStringsByReference(const std::string& json);

#endif
