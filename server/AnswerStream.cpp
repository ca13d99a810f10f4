#include "server/AnswerStream.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace diagserver {

namespace {

// Markup up to this size is a short answer's, or the head of a long one.
constexpr std::size_t smallMarkup = std::size_t{16} << 10;

} // namespace

AnswerStream::AnswerStream(Producer produce, std::size_t pieceSize, std::shared_ptr<PiecePool> pool)
    : produce_(std::move(produce)), pieceSize_(pieceSize), pool_(std::move(pool)),
      writer_([this](std::string_view markup) { append(markup); }, pieceSize,
              [this](MarkupPiece& piece) { adopt(piece); }) {}

AnswerStream::~AnswerStream() {
    for (MarkupPiece& piece : pieces_)
        recycle(std::move(piece));
}

void AnswerStream::append(std::string_view markup) {
    if (markup.empty())
        return;
    if (pieces_.empty() || pieces_.back().room() < markup.size()) {
        // A short answer's markup gets memory of about its size, from the C library's free
        // lists; a long one's, the pool's pieces, which the library would otherwise give back to
        // the system between answers and fault in again.
        const bool large = markup.size() >= smallMarkup;
        pieces_.push_back(pool_ && large && markup.size() <= pool_->pieceSize()
                              ? pool_->take()
                              : MarkupPiece(std::max(markup.size(), smallMarkup)));
    }
    MarkupPiece& last = pieces_.back();
    std::memcpy(last.data.get() + last.size, markup.data(), markup.size());
    last.size += markup.size();
    buffered_ += markup.size();
}

void AnswerStream::adopt(MarkupPiece& piece) {
    // A piece that fits where the last one ends (a slow operation's answers come one object a
    // piece) is copied there, so that what is held is bounded by the bytes, not by the pieces.
    if (!pieces_.empty() && pieces_.back().room() >= piece.size) {
        append(piece.view());
        recycle(std::move(piece));
        return;
    }
    const std::size_t size = piece.size;
    pieces_.push_back(std::move(piece));
    buffered_ += size;
}

void AnswerStream::recycle(MarkupPiece piece) {
    if (pool_)
        pool_->give(std::move(piece));
}

bool AnswerStream::produce(bool wait) {
    if (complete_ || failureCode_ != 0)
        return false;
    try {
        complete_ = !produce_(writer_, pieceSize_, wait);
        writer_.flush();
    } catch (const Failure& f) {
        failureCode_ = f.code != 0 ? f.code : 1;
        failureDescription_ = f.description;
        // What was written before the failure still goes out, for the trailer to follow.
        try {
            writer_.flush();
        } catch (...) {
        }
    } catch (const std::exception& e) {
        failureCode_ = 1;
        failureDescription_ = std::string("the answer could not be written: ") + e.what();
    } catch (...) {
        failureCode_ = 1;
        failureDescription_ = "the answer could not be written";
    }
    return true;
}

bool AnswerStream::fill() {
    writer_.flush();
    while (!complete_ && failureCode_ == 0 && buffered_ < pieceSize_) {
        const std::size_t before = buffered_;
        produce(false);
        if (buffered_ == before)
            break; // nothing more is ready: the rest streams
    }
    return complete_;
}

std::string_view AnswerStream::buffered() {
    if (pieces_.size() > 1) {
        MarkupPiece whole(buffered_);
        for (std::size_t i = 0; i < pieces_.size(); ++i) {
            const std::string_view part = pieces_[i].view().substr(i == 0 ? offset_ : 0);
            std::memcpy(whole.data.get() + whole.size, part.data(), part.size());
            whole.size += part.size();
        }
        for (MarkupPiece& piece : pieces_)
            recycle(std::move(piece));
        pieces_.clear();
        pieces_.push_back(std::move(whole));
        offset_ = 0;
    }
    if (pieces_.empty())
        return {};
    return pieces_.front().view().substr(offset_);
}

std::size_t AnswerStream::read(char* out, std::size_t max, State& state) {
    while (buffered_ == 0) {
        if (failureCode_ != 0) {
            state = State::Failed;
            return 0;
        }
        if (complete_ || !produce(true)) {
            state = failureCode_ != 0 ? State::Failed : State::End;
            return 0;
        }
    }
    std::size_t n = 0;
    while (n < max && buffered_ > 0) {
        MarkupPiece& first = pieces_.front();
        const std::size_t part = std::min(max - n, first.size - offset_);
        std::memcpy(out + n, first.data.get() + offset_, part);
        n += part;
        offset_ += part;
        buffered_ -= part;
        if (offset_ == first.size) {
            recycle(std::move(first));
            pieces_.pop_front();
            offset_ = 0;
        }
    }
    state = State::Data;
    return n;
}

} // namespace diagserver
