// The abstract unit of work that a ThreadPool runs. Tasks are always held by std::shared_ptr: the
// pool keeps a reference while a task may still be run or cancelled, and the creator may keep its own.
#pragma once

#include <atomic>

class ThreadPoolTask {
public:
    ThreadPoolTask() = default;
    virtual ~ThreadPoolTask() = default;
    ThreadPoolTask(const ThreadPoolTask&) = delete;
    ThreadPoolTask& operator=(const ThreadPoolTask&) = delete;

    // The work itself. Runs on a worker thread (Run) or on the caller's thread (RunAsSingleThread).
    virtual void Run() = 0;

    // Asks the task to stop; the task polls IsCancelled() and returns early. Virtual so that a task
    // can add its own way of stopping. May be called from any thread.
    virtual void Cancel() { m_cancelled.store(true, std::memory_order_relaxed); }

    // Polled by the task while it runs; a late answer only delays the stop.
    bool IsCancelled() const { return m_cancelled.load(std::memory_order_relaxed); }

private:
    // Relaxed is enough: the flag carries no data with it, and results travel through the pool's
    // futures. Atomic only so that the unsynchronised write/read pair is not a data race.
    std::atomic<bool> m_cancelled{false};
};
