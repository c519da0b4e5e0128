#include <cmath>
#include <cstring>

#include "cf/json.h"
#include "number_text.h"
#include "plain_text.h"
#include "utf8.h"

namespace {

// Room kept behind every text: for separators, quotes, a number, one escape, and what copyPlainText() overruns.
constexpr std::size_t slack = 64;
static_assert(slack >= plainTextOverrun + 16 && slack >= numberTextSize + 16);

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

char* appendText(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* appendEscape(char* out, unsigned char byte) noexcept {
    constexpr std::string_view digits = "0123456789abcdef";
    switch (byte) {
        case '"':
            return appendText(out, "\\\"");
        case '\\':
            return appendText(out, "\\\\");
        case '\b':
            return appendText(out, "\\b");
        case '\f':
            return appendText(out, "\\f");
        case '\n':
            return appendText(out, "\\n");
        case '\r':
            return appendText(out, "\\r");
        case '\t':
            return appendText(out, "\\t");
        default:
            out = appendText(out, "\\u00");
            *out++ = digits[byte >> 4];
            *out++ = digits[byte & 0xF];
            return out;
    }
}

}  // namespace

COJsonWriter::COJsonWriter(std::string& target)
    : m_target(target), m_end(target.data() + target.size()), m_limit(m_end) {}

COJsonWriter::~COJsonWriter() {
    finish();
}

void COJsonWriter::finish() {
    const auto size = static_cast<std::size_t>(m_end - m_target.data());
    m_target.resize(size);
    m_limit = m_end = m_target.data() + size;
}

void COJsonWriter::reserve(std::size_t size) {
    m_end = makeRoom(m_end, size);
}

// All of the string's capacity is made part of it, and the part not written is cut off at the end: so nothing is
// filled with zeros first.
char* COJsonWriter::grow(char* out, std::size_t size) {
    m_end = out;
    const auto used = static_cast<std::size_t>(out - m_target.data());
    m_target.reserve(used + size + slack);
    m_target.resize_and_overwrite(m_target.capacity(), [](char*, std::size_t capacity) noexcept { return capacity; });
    m_limit = m_target.data() + m_target.size();
    m_end = m_target.data() + used;
    return m_end;
}

char* COJsonWriter::makeRoom(char* out, std::size_t size) {
    return static_cast<std::size_t>(m_limit - out) >= size + slack ? out : grow(out, size);
}

char* COJsonWriter::appendSeparator(char* out) noexcept {
    if (m_needsComma) {
        *out++ = ',';
    }
    return out;
}

char* COJsonWriter::appendString(char* out, std::string_view text) {
    *out++ = '"';
    const std::size_t copied = copyPlainText(out, text.data(), text.size(), PlainBytes::ASCII);
    out += copied;
    if (copied != text.size()) {
        out = appendEscaped(out, text.substr(copied));
    }
    *out++ = '"';
    return out;
}

// The text is checked for ill-formed UTF-8 once, at its first byte beyond ASCII: a well-formed rest is copied like
// ASCII from there on, and only an ill-formed one goes sequence by sequence.
char* COJsonWriter::appendEscaped(char* out, std::string_view text) {
    PlainBytes plain = PlainBytes::ASCII;
    bool isChecked = false;
    while (!text.empty()) {
        out = makeRoom(out, text.size());
        const auto byte = static_cast<unsigned char>(text.front());
        std::size_t taken = 1;
        if (byte < 0x80) {
            out = appendEscape(out, byte);
        } else if (!isChecked && isValidUTF8(text)) {
            plain = PlainBytes::All;
            taken = 0;
        } else {
            const UTF8Sequence sequence = measureUTF8Sequence(text);
            taken = sequence.size;
            out = appendText(out, sequence.isWellFormed ? text.substr(0, taken) : replacementCharacter);
        }
        isChecked = isChecked || byte >= 0x80;
        text.remove_prefix(taken);
        const std::size_t copied = copyPlainText(out, text.data(), text.size(), plain);
        out += copied;
        text.remove_prefix(copied);
    }
    return out;
}

template <typename Append>
void COJsonWriter::writeValue(std::size_t size, Append append) {
    char* const out = makeRoom(m_end, size);
    m_end = append(appendSeparator(out));
    m_needsComma = true;
}

void COJsonWriter::beginObject() {
    writeValue(0, [](char* out) { return appendText(out, "{"); });
    m_needsComma = false;
}

void COJsonWriter::endObject() {
    m_end = appendText(makeRoom(m_end, 0), "}");
    m_needsComma = true;
}

void COJsonWriter::beginArray() {
    writeValue(0, [](char* out) { return appendText(out, "["); });
    m_needsComma = false;
}

void COJsonWriter::endArray() {
    m_end = appendText(makeRoom(m_end, 0), "]");
    m_needsComma = true;
}

void COJsonWriter::writeKey(std::string_view key) {
    writeString(key);
    *m_end++ = ':';
    m_needsComma = false;
}

void COJsonWriter::writeString(std::string_view text) {
    writeValue(text.size(), [this, text](char* out) { return appendString(out, text); });
}

void COJsonWriter::writeDouble(double number) {
    if (!std::isfinite(number)) {
        return writeNull();
    }
    writeValue(0, [number](char* out) { return writeNumber(out, number); });
}

void COJsonWriter::writeInteger(std::int64_t number) {
    writeValue(0, [number](char* out) { return writeNumber(out, number); });
}

void COJsonWriter::writeUnsigned(std::uint64_t number) {
    writeValue(0, [number](char* out) { return writeNumber(out, number); });
}

void COJsonWriter::writeBoolean(bool value) {
    writeValue(0, [value](char* out) { return appendText(out, value ? "true" : "false"); });
}

void COJsonWriter::writeNull() {
    writeValue(0, [](char* out) { return appendText(out, "null"); });
}

void COJsonWriter::writeMember(std::string_view key, std::string_view text) {
    writeKey(key);
    writeString(text);
}
