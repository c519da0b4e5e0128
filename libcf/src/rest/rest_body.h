#ifndef CF_SRC_REST_BODY_H
#define CF_SRC_REST_BODY_H

#include <cstddef>
#include <vector>

#include "cf/json.h"

namespace cf {

/// The total size of the pieces, in bytes.
[[nodiscard]] std::size_t countBytes(const std::vector<COJsonPiece>& pieces) noexcept;

/// Reads a request's body from its pieces, in order, as libcurl asks for it.
class BodyReader {
public:
    BodyReader() = default;
    /// @param pieces  borrowed
    explicit BodyReader(const std::vector<COJsonPiece>& pieces) noexcept : m_pieces(&pieces) { passOver(); }

    /// Copies up to `capacity` of the next bytes.
    /// @return their number; 0 at the end
    std::size_t read(char* target, std::size_t capacity) noexcept;
    /// Continues with the byte at `offset`. False if the body is shorter.
    bool seek(std::size_t offset) noexcept;
    /// Whether all bytes have been read.
    [[nodiscard]] bool isAtEnd() const noexcept { return m_pieces == nullptr || m_piece == m_pieces->size(); }

private:
    void passOver() noexcept;

    const std::vector<COJsonPiece>* m_pieces = nullptr;
    std::size_t m_piece = 0;   ///< the piece to read next
    std::size_t m_offset = 0;  ///< the next byte in it
};

}  // namespace cf

#endif
