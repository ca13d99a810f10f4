// The threads that run operations whose answers are written while they run. A job goes to an
// idle thread when there is one, else to a new thread while fewer than `limit` exist; a job
// never waits for a thread (without one, run() says so and the caller runs it itself). Threads
// are kept for the next jobs until the set is destroyed, so that a request does not start and
// end a thread of its own.
#ifndef DIAGSERVER_OPERATIONTHREADS_H
#define DIAGSERVER_OPERATIONTHREADS_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace diagserver {

class OperationThreads {
public:
    explicit OperationThreads(std::size_t limit);
    // Waits for the jobs given, then ends the threads.
    ~OperationThreads();
    OperationThreads(const OperationThreads&) = delete;
    OperationThreads& operator=(const OperationThreads&) = delete;

    // The end of one job, for whoever must outlive it to wait for.
    class Done {
    public:
        void wait();

    private:
        friend class OperationThreads;
        void mark();
        std::mutex mutex_;
        std::condition_variable ended_;
        bool done_ = false;
    };

    // Runs `job` (which must not throw) on a thread of the set; null, with the job not run, when
    // every thread is busy and no more may be started or none can be.
    std::shared_ptr<Done> run(std::function<void()> job);

    // Threads started so far.
    std::size_t size() const;

private:
    struct Job {
        std::function<void()> work;
        std::shared_ptr<Done> done;
    };
    void serve();

    const std::size_t limit_;
    mutable std::mutex mutex_;
    std::condition_variable work_;
    std::deque<Job> jobs_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    bool stopping_ = false;
};

} // namespace diagserver

#endif
