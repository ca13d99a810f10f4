#include "server/ResultQueue.h"

#include <cmpift.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace diagserver {

ResultQueue::Item::Item(Item&& other) noexcept
    : object_(std::exchange(other.object_, nullptr)), instance_(other.instance_) {}

ResultQueue::Item& ResultQueue::Item::operator=(Item&& other) noexcept {
    if (this != &other) {
        release();
        object_ = std::exchange(other.object_, nullptr);
        instance_ = other.instance_;
    }
    return *this;
}

ResultQueue::Item::~Item() {
    release();
}

const CMPIInstance* ResultQueue::Item::instance() const {
    return instance_ ? static_cast<const CMPIInstance*>(object_) : nullptr;
}

const CMPIObjectPath* ResultQueue::Item::path() const {
    return instance_ ? nullptr : static_cast<const CMPIObjectPath*>(object_);
}

void ResultQueue::Item::release() noexcept {
    if (object_ == nullptr)
        return;
    if (instance_) {
        auto* inst = static_cast<CMPIInstance*>(object_);
        inst->ft->release(inst);
    } else {
        auto* path = static_cast<CMPIObjectPath*>(object_);
        path->ft->release(path);
    }
    object_ = nullptr;
}

namespace {

// How long the writer waits for a whole batch before it takes what there is.
constexpr std::chrono::milliseconds batchWait{2};

} // namespace

ResultQueue::ResultQueue(std::size_t capacity)
    : capacity_(capacity > 0 ? capacity : 1), batch_(std::max<std::size_t>(1, capacity_ / 2)) {}

ResultQueue::~ResultQueue() = default;

std::deque<ResultQueue::Item> ResultQueue::takeReturned() {
    std::deque<Item> out;
    out.swap(returned_);
    return out;
}

bool ResultQueue::put(void* object, bool instance) {
    // Owned from here on, whatever happens.
    Item item(object, instance);
    std::deque<Item> written; // released after the lock
    std::unique_lock<std::mutex> lock(mutex_);
    written = takeReturned();
    if (items_.size() >= capacity_ && !cancelled_) {
        operationWaiting_ = true;
        forOperation_.wait(lock,
                           [this] { return cancelled_ || items_.size() + batch_ <= capacity_; });
        operationWaiting_ = false;
    }
    if (cancelled_)
        return false;
    items_.push_back(std::move(item));
    if (writerWaiting_ && (writerTakesAny_ || items_.size() >= batch_))
        forWriter_.notify_all();
    return true;
}

bool ResultQueue::instance(CMPIInstance* copy) {
    return put(copy, true);
}

bool ResultQueue::path(CMPIObjectPath* copy) {
    return put(copy, false);
}

void ResultQueue::finish(diaghost::OperationStatus status) {
    std::deque<Item> written; // released after the lock
    std::lock_guard<std::mutex> lock(mutex_);
    written = takeReturned();
    status_ = std::move(status);
    finished_ = true;
    forWriter_.notify_all();
}

bool ResultQueue::waitForFirst() {
    std::unique_lock<std::mutex> lock(mutex_);
    writerWaiting_ = writerTakesAny_ = true;
    forWriter_.wait(lock, [this] { return finished_ || cancelled_ || !items_.empty(); });
    writerWaiting_ = writerTakesAny_ = false;
    return !items_.empty();
}

const ResultQueue::Item* ResultQueue::next() {
    if (current_) {
        spent_.push_back(std::move(taken_.front()));
        taken_.pop_front();
        current_ = false;
    }
    if (taken_.empty()) {
        std::deque<Item> written; // released here, after the lock, once the operation has ended
        std::unique_lock<std::mutex> lock(mutex_);
        if (finished_ || cancelled_) {
            written.swap(spent_);
        } else {
            for (Item& item : spent_)
                returned_.push_back(std::move(item));
            spent_.clear();
        }
        if (items_.empty() && !finished_ && !cancelled_) {
            writerWaiting_ = true;
            forWriter_.wait_for(lock, batchWait, [this] {
                return finished_ || cancelled_ || items_.size() >= batch_;
            });
            writerTakesAny_ = true;
            forWriter_.wait(lock, [this] { return finished_ || cancelled_ || !items_.empty(); });
            writerWaiting_ = writerTakesAny_ = false;
        }
        taken_.swap(items_);
        if (operationWaiting_)
            forOperation_.notify_all();
    }
    if (taken_.empty())
        return nullptr;
    current_ = true;
    return &taken_.front();
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
    std::deque<Item> dropped;
    std::deque<Item> written;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        cancelled_ = true;
        dropped.swap(items_);
        written = takeReturned();
        forWriter_.notify_all();
        forOperation_.notify_all();
    }
}

} // namespace diagserver
