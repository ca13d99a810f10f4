// A bounded hand-over of one operation's answers, from the thread of the provider returning them
// to the thread writing the response. Each instance or path is written as CIM-XML on the
// provider's thread while its return call lasts, as an object manager serialises what it is
// handed, so that nothing returned is copied or kept; the writing thread takes the markup in
// pieces of about the pool's piece size, each the very memory it was written in. The provider's
// thread waits while `capacity` pieces wait to be taken, so however long the answer, a few
// pieces are held at most. A writer kept waiting is
// given what is written so far without waiting for a whole piece, so that a slow operation's
// answers still go out as they come. The operation ends it by finishing; the writer by cancelling
// (its client went away), after which every object still returned is refused.
#ifndef DIAGSERVER_RESULTQUEUE_H
#define DIAGSERVER_RESULTQUEUE_H

#include "server/CimXmlWriter.h"
#include "server/MarkupPiece.h"
#include "server/PiecePool.h"

#include "host/broker/OperationStatus.h"
#include "host/broker/ResultSink.h"

#include <cmpidt.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace diagserver {

class ResultQueue : public diaghost::ResultSink::Stream {
public:
    // Writes one returned object (exactly one of the two is given); may throw.
    using WriteItem = std::function<void(CimXmlWriter& out, const CMPIInstance* instance,
                                         const CMPIObjectPath* path)>;

    // The pieces and their memory come from `pool`, and should go back there once sent.
    ResultQueue(WriteItem write, std::size_t capacity, std::shared_ptr<PiecePool> pool);
    ~ResultQueue() override;
    ResultQueue(const ResultQueue&) = delete;
    ResultQueue& operator=(const ResultQueue&) = delete;

    // The operation's side, from any thread. An object that cannot be written ends the operation:
    // it is refused, and its failure becomes the operation's status.
    bool instance(const CMPIInstance* returned) override;
    bool path(const CMPIObjectPath* returned) override;
    // Hands on what is written and not taken yet, and the status.
    void finish(diaghost::OperationStatus status);

    // The writer's side. Waits until something is written or the operation has finished; whether
    // something was written.
    bool waitForFirst();
    // How long next() waits for a piece: not at all; a moment, after which it takes what is
    // written so far, if anything; or until there is one or the operation has ended.
    enum class Wait { No, Briefly, Forever };
    // The next piece of markup; none when there is none (drained() says whether there will be
    // no more).
    std::optional<MarkupPiece> next(Wait wait = Wait::Forever);
    // Whether the operation has ended and everything written was taken.
    bool drained() const;
    // The operation's status; only meaningful once next() gave none or waitForFirst() answered
    // false.
    diaghost::OperationStatus status() const;
    // Whether the operation has ended with a failure (its answers so far may still be held).
    bool failed() const;
    void cancel();

private:
    bool write(const CMPIInstance* instance, const CMPIObjectPath* path);
    // The operation-side writer's sink: queues its buffer, waiting for room, and leaves it new
    // memory.
    void push(MarkupPiece& piece);
    // Flushes the operation-side writer, writeMutex_ held; a failure to is kept for finish().
    void flushWritten() noexcept;
    // Keeps a failure to write, if any, and refuses every object from then on; writeMutex_ held.
    void refuseOn(std::optional<diaghost::OperationStatus> failure) noexcept;
    // How few pieces a waiting operation waits for.
    std::size_t resumeAt() const { return (capacity_ - 1) / 2; }

    WriteItem write_;
    const std::size_t capacity_;
    const std::shared_ptr<PiecePool> pool_;

    // The operation's side: its writer and a failure to write, under writeMutex_.
    std::mutex writeMutex_;
    CimXmlWriter writer_;
    std::optional<diaghost::OperationStatus> writeFailure_;
    // Set by the writer while it waits for a piece: each object is then handed on as soon as it
    // is written.
    std::atomic<bool> hungry_{true};
    std::atomic<bool> refusing_{false};

    mutable std::mutex mutex_;
    std::condition_variable forWriter_;
    std::condition_variable forOperation_;
    std::deque<MarkupPiece> pieces_;
    bool operationWaiting_ = false;
    bool finished_ = false;
    bool cancelled_ = false;
    diaghost::OperationStatus status_;
};

} // namespace diagserver

#endif
