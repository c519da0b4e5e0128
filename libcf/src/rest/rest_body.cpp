#include "rest/rest_body.h"

#include <algorithm>

namespace cf {

std::size_t countBytes(const std::vector<COJsonPiece>& pieces) noexcept {
    std::size_t count = 0;
    for (const COJsonPiece& piece : pieces) {
        count += piece.text.size();
    }
    return count;
}

std::size_t BodyReader::read(char* target, std::size_t capacity) noexcept {
    std::size_t count = 0;
    while (m_pieces != nullptr && m_piece < m_pieces->size() && count < capacity) {
        const std::string_view text = (*m_pieces)[m_piece].text;
        const std::size_t copied = text.copy(target + count, capacity - count, m_offset);
        count += copied;
        m_offset += copied;
        if (m_offset == text.size()) {
            ++m_piece;
            m_offset = 0;
        }
    }
    return count;
}

bool BodyReader::seek(std::size_t offset) noexcept {
    m_piece = 0;
    while (m_pieces != nullptr && m_piece < m_pieces->size() && offset >= (*m_pieces)[m_piece].text.size()) {
        offset -= (*m_pieces)[m_piece].text.size();
        ++m_piece;
    }
    m_offset = 0;
    if (m_pieces == nullptr || m_piece == m_pieces->size()) {
        return offset == 0;
    }
    m_offset = offset;
    return true;
}

}  // namespace cf
