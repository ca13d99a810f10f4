// Memory for the pieces long answers are written and sent in, kept from one answer for the next:
// taking a piece the C library handed back to the system meanwhile costs a page fault for every
// page written. Thread-safe; it keeps a bounded number of spare pieces of its own size, and frees
// any other memory given back.
#ifndef DIAGSERVER_PIECEPOOL_H
#define DIAGSERVER_PIECEPOOL_H

#include "server/MarkupPiece.h"

#include <cstddef>
#include <mutex>
#include <vector>

namespace diagserver {

class PiecePool {
public:
    // Pieces of `pieceSize` bytes and some room over, at most `keep` of them spare.
    PiecePool(std::size_t pieceSize, std::size_t keep);
    PiecePool(const PiecePool&) = delete;
    PiecePool& operator=(const PiecePool&) = delete;

    // An empty piece with room for at least pieceSize() bytes; may throw for lack of memory.
    MarkupPiece take();
    // Keeps the piece's memory for a later take(), or frees it.
    void give(MarkupPiece piece) noexcept;

    std::size_t pieceSize() const { return pieceSize_; }
    std::size_t spare() const;

private:
    const std::size_t pieceSize_;
    const std::size_t capacity_;
    const std::size_t keep_;
    mutable std::mutex mutex_;
    std::vector<MarkupPiece> spare_;
};

} // namespace diagserver

#endif
