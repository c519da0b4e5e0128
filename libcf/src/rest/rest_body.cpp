#include "rest/rest_body.h"

namespace cf {

std::size_t countBytes(const std::vector<COJsonPiece>& pieces) noexcept {
    std::size_t count = 0;
    for (const COJsonPiece& piece : pieces) {
        count += piece.text.size();
    }
    return count;
}

/// Skips pieces without unread bytes.
void BodyReader::passOver() noexcept {
    while (!isAtEnd() && m_offset == (*m_pieces)[m_piece].text.size()) {
        ++m_piece;
        m_offset = 0;
    }
}

std::size_t BodyReader::read(char* target, std::size_t capacity) noexcept {
    std::size_t count = 0;
    while (!isAtEnd() && count < capacity) {
        const std::size_t copied = (*m_pieces)[m_piece].text.copy(target + count, capacity - count, m_offset);
        count += copied;
        m_offset += copied;
        passOver();
    }
    return count;
}

bool BodyReader::seek(std::size_t offset) noexcept {
    m_piece = 0;
    m_offset = 0;
    while (!isAtEnd() && offset >= (*m_pieces)[m_piece].text.size()) {
        offset -= (*m_pieces)[m_piece].text.size();
        ++m_piece;
    }
    if (isAtEnd()) {
        return offset == 0;
    }
    m_offset = offset;
    return true;
}

}  // namespace cf
