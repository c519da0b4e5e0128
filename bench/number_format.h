#ifndef BENCH_NUMBER_FORMAT_H
#define BENCH_NUMBER_FORMAT_H

#include <string>

/// "98,977"
[[nodiscard]] std::string formatCount(double count);
/// Three digits and a letter: "99.0 k", "6.23 M"
[[nodiscard]] std::string formatInstructions(double instructions);
/// "29.5 µs", "1.16 ms"
[[nodiscard]] std::string formatSeconds(double seconds);
/// Two places behind the point, none for 1,000 and more.
[[nodiscard]] std::string formatValue(double value);

#endif
