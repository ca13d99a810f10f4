// A bounded hand-over of the instances or paths one operation returns, from the thread running the
// operation to the thread writing its answer. The operation's thread waits while the queue is
// full and the writer while it is empty; the writer takes what has gathered in one go, and while
// the operation runs gives the objects it has written back for the operation's thread to release,
// so that an object is made and freed on the same thread (and its memory and shared strings do
// not pass between cores twice). However long the answer, a few times `capacity` objects are held
// at most. The operation ends it by finishing; the writer by cancelling (its client went away),
// after which every object held or still returned is released at once.
#ifndef DIAGSERVER_RESULTQUEUE_H
#define DIAGSERVER_RESULTQUEUE_H

#include "host/broker/OperationStatus.h"
#include "host/broker/ResultSink.h"

#include <cmpidt.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

namespace diagserver {

class ResultQueue : public diaghost::ResultSink::Stream {
public:
    // One object taken from the queue: an instance or a path, released with the item.
    class Item {
    public:
        Item() = default;
        explicit Item(void* object, bool instance) : object_(object), instance_(instance) {}
        Item(Item&& other) noexcept;
        Item& operator=(Item&& other) noexcept;
        ~Item();
        const CMPIInstance* instance() const;
        const CMPIObjectPath* path() const;
        explicit operator bool() const { return object_ != nullptr; }

    private:
        void release() noexcept;
        void* object_ = nullptr;
        bool instance_ = false;
    };

    explicit ResultQueue(std::size_t capacity);
    ~ResultQueue() override;
    ResultQueue(const ResultQueue&) = delete;
    ResultQueue& operator=(const ResultQueue&) = delete;

    // The operation's side.
    bool instance(CMPIInstance* copy) override;
    bool path(CMPIObjectPath* copy) override;
    void finish(diaghost::OperationStatus status);

    // The writer's side. Waits until an object is there or the operation has finished; whether
    // an object is there.
    bool waitForFirst();
    // Waits for the next object; null once the operation has finished and everything was taken.
    // The object stays valid until the next call, and belongs to the queue.
    const Item* next();
    // The operation's status; only meaningful once next() gave an empty item or waitForFirst()
    // answered false.
    diaghost::OperationStatus status() const;
    // Whether the operation has ended with a failure (its answers so far may still be held).
    bool failed() const;
    void cancel();

private:
    bool put(void* object, bool instance);
    // Written objects for the operation's thread to release, mutex_ held; the caller releases
    // what it gets outside the lock.
    std::deque<Item> takeReturned();

    // Each side is woken once a batch of half the capacity is ready for it, not for every
    // object, so that the two threads do not take turns object by object; the writer takes a
    // smaller batch after a short wait, and anything at all after that, so that a slow
    // operation's answers still go out as they come.
    const std::size_t capacity_;
    const std::size_t batch_;
    mutable std::mutex mutex_;
    std::condition_variable forWriter_;
    std::condition_variable forOperation_;
    std::deque<Item> items_;
    // Written objects the operation's thread releases when it next hands one over or finishes.
    std::deque<Item> returned_;
    // The writer's own: what it has taken (the front is the object handed out last when
    // `current_`), and what it has written since it last took.
    std::deque<Item> taken_;
    std::deque<Item> spent_;
    bool current_ = false;
    bool writerWaiting_ = false;
    bool writerTakesAny_ = false;
    bool operationWaiting_ = false;
    bool finished_ = false;
    bool cancelled_ = false;
    diaghost::OperationStatus status_;
};

} // namespace diagserver

#endif
