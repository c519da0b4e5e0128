#include <algorithm>
#include <cmath>
#include <cstring>

#include "cf/json.h"
#include "text/numbers.h"
#include "text/text_escape.h"
#include "text/utf8.h"

namespace {

char* append(char* out, std::string_view text) noexcept {
    // The address of an empty view may be null, which memcpy does not allow.
    if (!text.empty()) {
        std::memcpy(out, text.data(), text.size());
    }
    return out + text.size();
}

}  // namespace

/// The functions that write. Each appends at `out`, the end of the text, and returns the new end. `out` is not a member
/// of the writer, because the compiler would load and store it again for each character: it must assume that a char*
/// may point to it.
struct COJsonWriter::Text {
    static char* makeRoom(COJsonWriter& writer, char* out, std::size_t size) {
        static_assert(kSpareBytes >= 2 * cf::kNumberTextSize);
        const auto room = static_cast<std::size_t>(writer.m_limit - out);
        return room >= size + kSpareBytes ? out : grow(writer, out, size);
    }

    // Resizes the string to its capacity without filling it with zeros; finish() cuts off the unused rest.
    [[gnu::noinline]] static char* grow(COJsonWriter& writer, char* out, std::size_t size) {
        std::string& target = writer.m_target;
        const auto used = static_cast<std::size_t>(out - target.data());
        writer.m_end = out;
        target.reserve(used + size + kSpareBytes);
        target.resize_and_overwrite(target.capacity(), [](char*, std::size_t capacity) noexcept { return capacity; });
        writer.m_end = target.data() + used;
        writer.m_limit = target.data() + target.size();
        return writer.m_end;
    }

    /// Begins a value: makes room for it, and writes a comma if one is needed.
    static char* begin(COJsonWriter& writer, std::size_t size) {
        char* out = makeRoom(writer, writer.m_end, size);
        if (writer.m_needsComma) {
            *out++ = ',';
        }
        return out;
    }

    /// Ends a value: the next one needs a comma.
    static void end(COJsonWriter& writer, char* out) noexcept {
        writer.m_end = out;
        writer.m_needsComma = true;
    }

    /// The caller has made room for the text.
    static char* appendString(COJsonWriter& writer, char* out, std::string_view text) {
        *out++ = '"';
        out = appendText(writer, out, text);
        *out++ = '"';
        return out;
    }

    /// Begins a member: writes its key, and makes room for `valueSize` bytes of its value.
    static char* beginMember(COJsonWriter& writer, std::string_view key, std::size_t valueSize) {
        char* out = begin(writer, key.size() + valueSize);
        *out++ = '"';
        // Escapes in the key may have used the value's room.
        out = makeRoom(writer, appendText(writer, out, key), valueSize);
        return append(out, "\":");
    }

    // Validates UTF-8 once, from the first non-ASCII byte on. Only if that fails, the rest is written sequence by
    // sequence.
    [[gnu::noinline]] static char* appendText(COJsonWriter& writer, char* out, std::string_view text) {
        const char* const end = text.data() + text.size();
        cf::EscapeProgress progress = cf::escapeText(out, writer.m_limit, text.data(), end, cf::PlainBytes::ASCII);
        cf::PlainBytes plain = cf::PlainBytes::ASCII;
        bool isIllFormed = false;
        while (progress.text != end) {
            text = {progress.text, static_cast<std::size_t>(end - progress.text)};
            progress.out = makeRoom(writer, progress.out, text.size());
            if (plain == cf::PlainBytes::ASCII && static_cast<unsigned char>(text.front()) >= 0x80) {
                isIllFormed = isIllFormed || !cf::isValidUTF8(text);
                if (isIllFormed) {
                    progress = appendSequence(progress, text);
                } else {
                    plain = cf::PlainBytes::All;
                }
            }
            progress = cf::escapeText(progress.out, writer.m_limit, progress.text, end, plain);
        }
        return progress.out;
    }

    static cf::EscapeProgress appendSequence(cf::EscapeProgress progress, std::string_view text) {
        const cf::UTF8Sequence sequence = cf::measureUTF8Sequence(text);
        const std::string_view written =
            sequence.isWellFormed ? text.substr(0, sequence.size) : cf::kReplacementCharacter;
        return {append(progress.out, written), progress.text + sequence.size};
    }

    static void writeWord(COJsonWriter& writer, std::string_view word) { end(writer, append(begin(writer, 0), word)); }

    template <typename Number>
    static void writeNumber(COJsonWriter& writer, Number number) {
        end(writer, cf::spellNumber(begin(writer, 0), number));
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
    m_end = Text::beginMember(*this, key, 0);
    m_needsComma = false;
}

void COJsonWriter::writeString(std::string_view text) {
    Text::end(*this, Text::appendString(*this, Text::begin(*this, text.size()), text));
}

void COJsonWriter::writeMember(std::string_view key, std::string_view text) {
    char* const out = Text::beginMember(*this, key, text.size());
    Text::end(*this, Text::appendString(*this, out, text));
}

void COJsonWriter::writeFramed(std::string_view before, std::string_view text, std::string_view after) {
    char* out = append(Text::begin(*this, before.size() + text.size()), before);
    // Escapes in the text may have used the room for `after`.
    out = Text::makeRoom(*this, Text::appendString(*this, out, text), after.size());
    Text::end(*this, append(out, after));
}

void COJsonWriter::writeDouble(double number) {
    if (!std::isfinite(number)) {
        writeNull();
    } else if (number == 0.0 && std::signbit(number)) {
        Text::writeWord(*this, "-0.0");  // "-0" would be read as an integer, which loses the sign
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
