#include "text/utf8.h"

#include <simdjson.h>

namespace cf {

namespace {

/// What follows a lead byte: the size of the sequence (0: this is no lead byte) and the range of its second byte. All
/// further bytes are 80 to BF.
struct LeadByte {
    std::size_t size;
    unsigned char secondLowest = 0x80;
    unsigned char secondHighest = 0xBF;
};

LeadByte classifyLeadByte(unsigned char byte) noexcept {
    if (byte < 0x80) {
        return {1};
    }
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {2};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        // No overlong form (E0), no surrogate (ED).
        return {3, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        // No overlong form (F0), nothing beyond U+10FFFF (F4).
        return {4, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0};
}

// At its first use simdjson selects an implementation for the processor, and allocates memory. Use it once while the
// library is loaded, so that isValidUTF8() never allocates: it must not throw.
[[maybe_unused]] const bool isEngineReady = simdjson::validate_utf8("", 0);

}  // namespace

bool isValidUTF8(std::string_view text) noexcept {
    return simdjson::validate_utf8(text);
}

UTF8Sequence measureUTF8Sequence(std::string_view text) noexcept {
    const LeadByte lead = classifyLeadByte(static_cast<unsigned char>(text.front()));
    if (lead.size == 0) {
        return {1, false};
    }
    unsigned char lowest = lead.secondLowest;
    unsigned char highest = lead.secondHighest;
    for (std::size_t size = 1; size < lead.size; ++size) {
        const auto byte = size < text.size() ? static_cast<unsigned char>(text[size]) : 0;
        if (byte < lowest || byte > highest) {
            return {size, false};
        }
        lowest = 0x80;
        highest = 0xBF;
    }
    return {lead.size, true};
}

}  // namespace cf
