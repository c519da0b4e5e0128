#ifndef FUZZ_TABLES_H
#define FUZZ_TABLES_H

#include <string_view>

/// Hidden from all that is printed, like a user's key.
inline constexpr std::string_view kFuzzedSecret = "sk-0123";

/// Prints a result in every format. The first bytes of the input choose the style and the number of columns, the rest
/// is names and values, each ended by 0x1E; the first byte of a value chooses its kind.
void printTableInput(std::string_view input);

#endif
