#include "server/OperationThreads.h"

#include <utility>

namespace diagserver {

void OperationThreads::Done::wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    ended_.wait(lock, [this] { return done_; });
}

void OperationThreads::Done::mark() {
    std::lock_guard<std::mutex> lock(mutex_);
    done_ = true;
    ended_.notify_all();
}

OperationThreads::OperationThreads(std::size_t limit) : limit_(limit) {}

OperationThreads::~OperationThreads() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        work_.notify_all();
    }
    for (std::thread& t : threads_)
        t.join();
}

std::shared_ptr<OperationThreads::Done> OperationThreads::run(std::function<void()> job) {
    auto done = std::make_shared<Done>();
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_)
        return nullptr;
    // Each idle thread takes one job; a job beyond them needs a thread of its own.
    if (idle_ <= jobs_.size()) {
        if (threads_.size() >= limit_)
            return nullptr;
        try {
            threads_.reserve(threads_.size() + 1);
            threads_.emplace_back([this] { serve(); });
        } catch (...) {
            return nullptr;
        }
    }
    try {
        jobs_.push_back(Job{std::move(job), done});
    } catch (...) {
        // The thread just started stays, idle, for a later job.
        return nullptr;
    }
    work_.notify_one();
    return done;
}

std::size_t OperationThreads::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return threads_.size();
}

void OperationThreads::serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++idle_;
    for (;;) {
        work_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty()) {
            --idle_;
            return; // stopping, nothing left
        }
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        --idle_;
        lock.unlock();
        try {
            job.work();
        } catch (...) {
            // A job answers for its own failures; nothing may end the thread.
        }
        // What the job holds goes, and the thread counts as free again, before whoever waits
        // for the job is told it has ended: a job given right after finds this thread.
        job.work = nullptr;
        lock.lock();
        ++idle_;
        lock.unlock();
        job.done->mark();
        job.done.reset();
        lock.lock();
    }
}

} // namespace diagserver
