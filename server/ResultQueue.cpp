#include "server/ResultQueue.h"

#include <chrono>
#include <exception>
#include <optional>
#include <utility>

namespace diagserver {

namespace {

// How long the writer waits for a whole piece before it takes what is written.
constexpr std::chrono::milliseconds pieceWait{2};

// Runs `write`; the failure it ends with, if any.
template <class Write>
std::optional<diaghost::OperationStatus> failureOf(Write&& write) noexcept {
    try {
        write();
        return std::nullopt;
    } catch (const std::exception& e) {
        return diaghost::OperationStatus::failed("writing the answer", e.what());
    } catch (...) {
        return diaghost::OperationStatus::failed("writing the answer", nullptr);
    }
}

} // namespace

ResultQueue::ResultQueue(WriteItem write, std::size_t capacity, std::shared_ptr<PiecePool> pool)
    : write_(std::move(write)), capacity_(capacity > 0 ? capacity : 1), pool_(std::move(pool)),
      writer_([this](MarkupPiece& piece) { push(piece); }, pool_->take(), pool_->pieceSize()) {}

ResultQueue::~ResultQueue() {
    pool_->give(writer_.takeMemory());
    for (MarkupPiece& piece : pieces_)
        pool_->give(std::move(piece));
}

void ResultQueue::push(MarkupPiece& piece) {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (pieces_.size() >= capacity_ && !cancelled_) {
            // Woken once the queue is down to resumeAt() pieces, not for every piece taken, so
            // that the two threads do not take turns piece by piece.
            operationWaiting_ = true;
            forOperation_.wait(lock, [this] { return cancelled_ || pieces_.size() <= resumeAt(); });
            operationWaiting_ = false;
        }
        if (cancelled_) {
            // Nobody reads it any more: the writer goes on in the same memory.
            piece.size = 0;
            return;
        }
        pieces_.push_back(std::move(piece));
    }
    // Woken once the lock is free, so that the writer does not wake only to wait for it.
    forWriter_.notify_all();
    try {
        piece = pool_->take();
    } catch (...) {
        // The writer makes do without, and finds out whether memory can be had when it next
        // writes.
    }
}

void ResultQueue::flushWritten() noexcept {
    refuseOn(failureOf([this] { writer_.flush(); }));
}

void ResultQueue::refuseOn(std::optional<diaghost::OperationStatus> failure) noexcept {
    if (!failure)
        return;
    writeFailure_ = std::move(failure);
    refusing_ = true;
}

bool ResultQueue::write(const CMPIInstance* instance, const CMPIObjectPath* path) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    if (refusing_)
        return false;
    refuseOn(failureOf([&] {
        write_(writer_, instance, path);
        writer_.maybeFlush();
        if (hungry_)
            writer_.flush();
    }));
    return !refusing_;
}

bool ResultQueue::instance(const CMPIInstance* returned) {
    return returned != nullptr && write(returned, nullptr);
}

bool ResultQueue::path(const CMPIObjectPath* returned) {
    return returned != nullptr && write(nullptr, returned);
}

void ResultQueue::finish(diaghost::OperationStatus status) {
    {
        std::lock_guard<std::mutex> lock(writeMutex_);
        if (!refusing_)
            flushWritten();
        if (writeFailure_)
            status = std::move(*writeFailure_);
        refusing_ = true;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    status_ = std::move(status);
    finished_ = true;
    forWriter_.notify_all();
}

bool ResultQueue::waitForFirst() {
    std::unique_lock<std::mutex> lock(mutex_);
    forWriter_.wait(lock, [this] { return finished_ || cancelled_ || !pieces_.empty(); });
    return !pieces_.empty();
}

std::optional<MarkupPiece> ResultQueue::next(Wait wait) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto ready = [this] { return finished_ || cancelled_ || !pieces_.empty(); };
    if (!ready() && wait != Wait::No) {
        forWriter_.wait_for(lock, pieceWait, ready);
        while (!ready()) {
            // Whatever is written goes now, and each object from here on as soon as it is
            // written. An object being written meanwhile (the lock is taken) is handed on by
            // its own writer once it is whole, unless that writer looked before `hungry_` was
            // set: then this is tried again a moment later.
            hungry_ = true;
            lock.unlock();
            bool flushed = false;
            {
                std::unique_lock<std::mutex> writing(writeMutex_, std::try_to_lock);
                if (writing.owns_lock()) {
                    if (!refusing_)
                        flushWritten();
                    flushed = true;
                }
            }
            lock.lock();
            if (ready() || wait == Wait::Briefly)
                break;
            if (flushed)
                forWriter_.wait(lock, ready);
            else
                forWriter_.wait_for(lock, pieceWait, ready);
        }
    }
    if (pieces_.empty())
        return std::nullopt;
    std::optional<MarkupPiece> piece(std::move(pieces_.front()));
    pieces_.pop_front();
    hungry_ = false;
    const bool room = operationWaiting_ && pieces_.size() <= resumeAt();
    lock.unlock();
    if (room)
        forOperation_.notify_all();
    return piece;
}

bool ResultQueue::drained() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return (finished_ || cancelled_) && pieces_.empty();
}

diaghost::OperationStatus ResultQueue::status() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return status_;
}

bool ResultQueue::failed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return finished_ && !status_.ok();
}

void ResultQueue::cancel() {
    std::deque<MarkupPiece> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        cancelled_ = true;
        refusing_ = true;
        dropped.swap(pieces_);
        forWriter_.notify_all();
        forOperation_.notify_all();
    }
    for (MarkupPiece& piece : dropped)
        pool_->give(std::move(piece));
}

} // namespace diagserver
