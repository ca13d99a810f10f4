#include "server/PiecePool.h"

#include <utility>

namespace diagserver {

PiecePool::PiecePool(std::size_t pieceSize, std::size_t keep)
    // The room over a piece takes the object that crosses its end without moving it.
    : pieceSize_(pieceSize > 0 ? pieceSize : 1), capacity_(pieceSize_ + pieceSize_ / 4 + 4096),
      keep_(keep) {
    spare_.reserve(keep_);
}

MarkupPiece PiecePool::take() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!spare_.empty()) {
            MarkupPiece piece = std::move(spare_.back());
            spare_.pop_back();
            return piece;
        }
    }
    return MarkupPiece(capacity_);
}

void PiecePool::give(MarkupPiece piece) noexcept {
    // Only the pool's own size is kept: a piece grown around one huge object is not.
    if (piece.capacity != capacity_)
        return;
    piece.size = 0;
    std::lock_guard<std::mutex> lock(mutex_);
    if (spare_.size() < keep_)
        spare_.push_back(std::move(piece));
}

std::size_t PiecePool::spare() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return spare_.size();
}

} // namespace diagserver
