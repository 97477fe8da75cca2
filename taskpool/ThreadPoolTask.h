// The abstract unit of work that a ThreadPool runs. Tasks are always held by std::shared_ptr: the
// pool keeps a reference while a task may still be run or cancelled, and the creator may keep its own.
#pragma once

#include <atomic>
#include <memory>

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

    // Polled by the task while it runs; a late answer only delays the stop. True as well once the pass
    // the task belongs to is cancelled: the pool stops a pass with one store, however many tasks it has.
    bool IsCancelled() const {
        return m_cancelled.load(std::memory_order_relaxed) ||
               (m_passCancelled != nullptr && m_passCancelled->load(std::memory_order_relaxed));
    }

private:
    friend class ThreadPool;
    // Relaxed is enough: the flags carry no data with them, and results travel through the pool's
    // pass counter. Atomic only so that the unsynchronised write/read pairs are not data races.
    std::atomic<bool> m_cancelled{false};
    // The flag of the pass the task was last handed to; set by the pool before the task runs.
    std::shared_ptr<const std::atomic<bool>> m_passCancelled;
};
