#include <algorithm>
#include <cmath>
#include <cstring>

#include "cf/json.h"
#include "numbers.h"
#include "plain_text.h"
#include "utf8.h"

namespace {

// Room kept behind every text, so that a separator, quotes, a number or one escape need no test of their own.
constexpr std::size_t kSlack = 64;
static_assert(kSlack >= 2 * kNumberTextSize);

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

char* append(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* appendEscape(char* out, unsigned char byte) noexcept {
    constexpr std::string_view kDigits = "0123456789abcdef";
    switch (byte) {
        case '"':
            return append(out, "\\\"");
        case '\\':
            return append(out, "\\\\");
        case '\b':
            return append(out, "\\b");
        case '\f':
            return append(out, "\\f");
        case '\n':
            return append(out, "\\n");
        case '\r':
            return append(out, "\\r");
        case '\t':
            return append(out, "\\t");
        default:
            out = append(out, "\\u00");
            *out++ = kDigits[byte >> 4];
            *out++ = kDigits[byte & 0xF];
            return out;
    }
}

}  // namespace

/// The writing itself. Each function appends at `out`, where the text ends, and gives the new end: kept in a register
/// instead of in the writer, which every character written might otherwise change for all the compiler knows.
struct COJsonWriter::Text {
    static char* makeRoom(COJsonWriter& writer, char* out, std::size_t size) {
        const auto room = static_cast<std::size_t>(writer.m_limit - out);
        return room >= size + kSlack ? out : grow(writer, out, size);
    }

    // All of the string's capacity is made part of it, and what is not written is cut off at the end: so nothing is
    // filled with zeros first.
    [[gnu::noinline]] static char* grow(COJsonWriter& writer, char* out, std::size_t size) {
        std::string& target = writer.m_target;
        const auto used = static_cast<std::size_t>(out - target.data());
        writer.m_end = out;
        target.reserve(used + size + kSlack);
        target.resize_and_overwrite(target.capacity(), [](char*, std::size_t capacity) noexcept { return capacity; });
        writer.m_end = target.data() + used;
        writer.m_limit = target.data() + target.size();
        return writer.m_end;
    }

    /// Begins a value: makes room for it, and separates it from the one before.
    static char* begin(COJsonWriter& writer, std::size_t size) {
        char* out = makeRoom(writer, writer.m_end, size);
        if (writer.m_needsComma) {
            *out++ = ',';
        }
        return out;
    }

    /// Ends a value; another one needs a comma.
    static void end(COJsonWriter& writer, char* out) noexcept {
        writer.m_end = out;
        writer.m_needsComma = true;
    }

    /// Needs room for the text.
    static char* appendString(COJsonWriter& writer, char* out, std::string_view text) {
        *out++ = '"';
        const std::size_t copied = copyPlainText(out, text.data(), text.size(), PlainBytes::ASCII);
        out += copied;
        if (copied != text.size()) {
            text.remove_prefix(copied);
            out = appendSpecial(writer, out, text);
        }
        *out++ = '"';
        return out;
    }

    // The text is checked once, at its first byte beyond ASCII: well-formed UTF-8 is copied like ASCII from there on,
    // and only in an ill-formed text each sequence is looked at.
    [[gnu::noinline]] static char* appendSpecial(COJsonWriter& writer, char* out, std::string_view text) {
        PlainBytes plain = PlainBytes::ASCII;
        bool isChecked = false;
        while (!text.empty()) {
            out = makeRoom(writer, out, text.size());
            const auto byte = static_cast<unsigned char>(text.front());
            if (byte < 0x80) {
                out = appendEscape(out, byte);
                text.remove_prefix(1);
            } else if (!isChecked && isValidUTF8(text)) {
                plain = PlainBytes::All;
            } else {
                isChecked = true;
                const UTF8Sequence sequence = measureUTF8Sequence(text);
                out = append(out, sequence.isWellFormed ? text.substr(0, sequence.size) : kReplacementCharacter);
                text.remove_prefix(sequence.size);
            }
            const std::size_t copied = copyPlainText(out, text.data(), text.size(), plain);
            out += copied;
            text.remove_prefix(copied);
        }
        return out;
    }

    static void writeWord(COJsonWriter& writer, std::string_view word) { end(writer, append(begin(writer, 0), word)); }

    template <typename Number>
    static void writeNumber(COJsonWriter& writer, Number number) {
        end(writer, spellNumber(begin(writer, 0), number));
    }
};

COJsonWriter::COJsonWriter(std::string& target)
    : m_target(target), m_end(target.data() + target.size()), m_limit(m_end) {}

COJsonWriter::~COJsonWriter() {
    finish();
}

void COJsonWriter::finish() {
    m_target.resize(static_cast<std::size_t>(m_end - m_target.data()));
    m_limit = m_end;
}

void COJsonWriter::reserve(std::size_t size) {
    m_end = Text::makeRoom(*this, m_end, std::min(size, m_target.max_size()));
}

void COJsonWriter::beginObject() {
    Text::writeWord(*this, "{");
    m_needsComma = false;
}

void COJsonWriter::endObject() {
    m_needsComma = false;
    Text::writeWord(*this, "}");
}

void COJsonWriter::beginArray() {
    Text::writeWord(*this, "[");
    m_needsComma = false;
}

void COJsonWriter::endArray() {
    m_needsComma = false;
    Text::writeWord(*this, "]");
}

void COJsonWriter::writeKey(std::string_view key) {
    char* out = Text::appendString(*this, Text::begin(*this, key.size()), key);
    *out++ = ':';
    m_end = out;
    m_needsComma = false;
}

void COJsonWriter::writeString(std::string_view text) {
    Text::end(*this, Text::appendString(*this, Text::begin(*this, text.size()), text));
}

void COJsonWriter::writeMember(std::string_view key, std::string_view text) {
    char* out = Text::appendString(*this, Text::begin(*this, key.size() + text.size()), key);
    *out++ = ':';
    out = Text::makeRoom(*this, out, text.size());
    Text::end(*this, Text::appendString(*this, out, text));
}

void COJsonWriter::writeDouble(double number) {
    if (!std::isfinite(number)) {
        writeNull();
    } else if (number == 0.0 && std::signbit(number)) {
        Text::writeWord(*this, "-0.0");  // "-0" is read as an integer, which has no sign then
    } else {
        Text::writeNumber(*this, number);
    }
}

void COJsonWriter::writeInteger(std::int64_t number) {
    Text::writeNumber(*this, number);
}

void COJsonWriter::writeUnsigned(std::uint64_t number) {
    Text::writeNumber(*this, number);
}

void COJsonWriter::writeBoolean(bool value) {
    Text::writeWord(*this, value ? "true" : "false");
}

void COJsonWriter::writeNull() {
    Text::writeWord(*this, "null");
}
