#include "terminal/visible_stream.h"

#include <utility>

#include "terminal/secret_text.h"
#include "terminal/text_safety.h"
#include "terminal/utf8.h"

namespace host {
namespace {

std::string takeLastCharacter(std::string_view text) {
    std::size_t start = 0;
    for (std::size_t position = 0; position < text.size();) {
        start = position;
        static_cast<void>(decodeCharacter(text, position));
    }
    return std::string(text.substr(start));
}

}  // namespace

std::string VisibleStream::add(std::string_view piece) {
    m_pending += piece;
    std::size_t size = findUnfinishedSecret(m_pending, obtainHiddenSecret());
    // A carriage return is dropped before a line feed and shown elsewhere.
    if (size > 0 && m_pending[size - 1] == '\r') {
        --size;
    }
    return take(size);
}

std::string VisibleStream::finish() {
    return take(m_pending.size());
}

std::string VisibleStream::take(std::size_t size) {
    if (size == 0) {
        return {};
    }
    // The context goes in front and is taken off again.
    const std::string context = makeVisible(m_lastCharacter, LineBreaks::Keep);
    std::string visible = makeVisible(m_lastCharacter + m_pending.substr(0, size), LineBreaks::Keep);
    m_lastCharacter = takeLastCharacter(std::string_view(m_pending).substr(0, size));
    if (m_lastCharacter == "\r") {
        m_lastCharacter.clear();
    }
    m_pending.erase(0, size);
    return visible.substr(context.size());
}

}  // namespace host
