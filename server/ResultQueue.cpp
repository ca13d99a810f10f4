#include "server/ResultQueue.h"

#include <cmpift.h>

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

ResultQueue::ResultQueue(std::size_t capacity) : capacity_(capacity > 0 ? capacity : 1) {}

ResultQueue::~ResultQueue() = default;

bool ResultQueue::put(void* object, bool instance) {
    // Owned from here on, whatever happens.
    Item item(object, instance);
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return cancelled_ || items_.size() < capacity_; });
    if (cancelled_)
        return false;
    items_.push_back(std::move(item));
    changed_.notify_all();
    return true;
}

bool ResultQueue::instance(CMPIInstance* copy) {
    return put(copy, true);
}

bool ResultQueue::path(CMPIObjectPath* copy) {
    return put(copy, false);
}

void ResultQueue::finish(diaghost::OperationStatus status) {
    std::lock_guard<std::mutex> lock(mutex_);
    status_ = std::move(status);
    finished_ = true;
    changed_.notify_all();
}

bool ResultQueue::waitForFirst() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return finished_ || !items_.empty(); });
    return !items_.empty();
}

ResultQueue::Item ResultQueue::next() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return finished_ || cancelled_ || !items_.empty(); });
    if (items_.empty())
        return Item();
    Item item = std::move(items_.front());
    items_.pop_front();
    changed_.notify_all();
    return item;
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
    {
        std::lock_guard<std::mutex> lock(mutex_);
        cancelled_ = true;
        dropped.swap(items_);
        changed_.notify_all();
    }
}

} // namespace diagserver
