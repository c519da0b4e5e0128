#ifndef CF_SRC_REST_BODY_H
#define CF_SRC_REST_BODY_H

#include <cstddef>
#include <vector>

#include "cf/json.h"

namespace cf {

/// The bytes of all pieces together.
[[nodiscard]] std::size_t countBytes(const std::vector<COJsonPiece>& pieces) noexcept;

/// Reads the pieces of a request's body one after the other, as libcurl asks for them.
class BodyReader {
public:
    BodyReader() = default;
    /// @param pieces  borrowed
    explicit BodyReader(const std::vector<COJsonPiece>& pieces) noexcept : m_pieces(&pieces) { passOver(); }

    /// Copies the next bytes, as many as there is room for.
    /// @return their number; 0 at the end
    std::size_t read(char* target, std::size_t capacity) noexcept;
    /// Goes on with the byte at `offset`. False where the body is shorter.
    bool seek(std::size_t offset) noexcept;
    /// Whether all bytes have been read.
    [[nodiscard]] bool isAtEnd() const noexcept { return m_pieces == nullptr || m_piece == m_pieces->size(); }

private:
    void passOver() noexcept;

    const std::vector<COJsonPiece>* m_pieces = nullptr;
    std::size_t m_piece = 0;   ///< the piece to be read from
    std::size_t m_offset = 0;  ///< the next byte in it
};

}  // namespace cf

#endif
