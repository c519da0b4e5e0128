#include "number_format.h"

#include <cstdio>

namespace {

/// Three significant digits.
std::string formatShort(double number, const char* unit) {
    char text[64];
    const int places = number < 10 ? 2 : number < 100 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f%s", places, number, unit);
    return text;
}

}  // namespace

std::string formatCount(double count) {
    std::string text = formatShort(count < 1000 ? 1000 : count, "");
    if (count < 1000) {
        text = std::to_string(static_cast<long>(count + 0.5));
    }
    for (std::size_t place = text.size(); place > 3;) {
        place -= 3;
        text.insert(place, 1, ',');
    }
    return text;
}

std::string formatInstructions(double instructions) {
    if (instructions < 1e3) {
        return formatCount(instructions);
    }
    return instructions < 1e6 ? formatShort(instructions / 1e3, " k") : formatShort(instructions / 1e6, " M");
}

std::string formatSeconds(double seconds) {
    if (seconds < 1e-3) {
        return formatShort(seconds * 1e6, " µs");
    }
    return seconds < 1 ? formatShort(seconds * 1e3, " ms") : formatShort(seconds, " s");
}

std::string formatValue(double value) {
    if (value >= 1000 || value == static_cast<double>(static_cast<long>(value))) {
        return formatCount(value);
    }
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", value < 0.1 ? 3 : 2, value);
    return text;
}
