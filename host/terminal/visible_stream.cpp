#include "terminal/visible_stream.h"

#include "terminal/secret_text.h"
#include "terminal/text_safety.h"

namespace host {

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
    std::string visible = makeVisible(std::string_view(m_pending).substr(0, size), LineBreaks::Keep, m_previous);
    m_pending.erase(0, size);
    return visible;
}

}  // namespace host
