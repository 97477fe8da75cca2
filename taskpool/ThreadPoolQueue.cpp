// The parts of the pool that are the same with or without worker threads: the queue, progress,
// the single-threaded pass, page-wide chunked loops and cancelling.
#include "taskpool/ThreadPool.h"

#include <algorithm>
#include <utility>

void ThreadPool::Enqueue(std::shared_ptr<ThreadPoolTask> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_tasks.push_back(std::move(task));
}

void ThreadPool::SetProgressCallback(ProgressCallback callback, void* userData) {
    m_progressCallback = callback;
    m_userData = userData;
}

// Meant for a pool that no other thread feeds; the queue is still touched only under the lock, so a
// Cancel from another thread cannot tear it.
void ThreadPool::RunAsSingleThread() {
    m_completedTasks.exchange(0);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_totalTasks.exchange(static_cast<int32_t>(m_tasks.size()));
    }

    for (;;) {
        std::shared_ptr<ThreadPoolTask> task;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_tasks.empty()) break;
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
            m_running.push_back(task);
        }
        task->Run();
        const int previous = m_completedTasks.fetch_add(1);
        if (m_progressCallback != nullptr &&
            m_progressCallback(m_totalTasks.load(), previous + 1, m_userData) == 0) {
            Cancel();
            break;
        }
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    m_running.clear();
}

// Taking the lock orders the notification after a waiter's check of its condition: no lost wake-up.
void ThreadPool::NotifyPassDone() {
    { std::lock_guard<std::mutex> lock(m_mutex); }
    m_passDone.notify_all();
}

void ThreadPool::ForEachChunk(int64_t count, int64_t grain,
                              const std::function<void(int64_t begin, int64_t end)>& body) {
    if (count <= 0) return;
    if (grain < 1) grain = 1;
    const int64_t chunks = (count + grain - 1) / grain;
    // Chunks are handed out one at a time, so a thread slowed by other load simply takes fewer.
    // `inside` counts helpers that may still call `body`; one that arrives after the last chunk was
    // taken never calls it, so the caller need not wait for helpers that have not started.
    struct Shared {
        std::atomic<int64_t> next{0};
        std::atomic<int64_t> inside{0};
    };
    auto shared = std::make_shared<Shared>();
    const auto work = [shared, chunks, count, grain](const std::function<void(int64_t, int64_t)>& run) {
        for (int64_t chunk = shared->next.fetch_add(1); chunk < chunks; chunk = shared->next.fetch_add(1))
            run(chunk * grain, std::min(count, (chunk + 1) * grain));
    };
    // The calling thread takes a share, so one worker fewer keeps every core busy without crowding it.
    const int64_t helpers = std::min<int64_t>(static_cast<int64_t>(m_workers.size()) - 1, chunks - 1);
    if (helpers > 0) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            // Helpers go to the front of the queue: jobs of an abandoned pass must not delay them (on the
            // workers that take the front).
            for (int64_t i = 0; i < helpers; ++i) {
                m_jobs.emplace_front([this, shared, work, &body] {
                    shared->inside.fetch_add(1);
                    work(body);
                    if (shared->inside.fetch_sub(1) == 1) NotifyPassDone();
                });
            }
            m_queuedJobs.store(m_jobs.size(), std::memory_order_relaxed);
        }
        m_condition.notify_all();
    }
    work(body);
    // Every chunk is taken; wait for helpers still inside `body`, which lives on the caller's stack.
    std::unique_lock<std::mutex> lock(m_mutex);
    m_passDone.wait(lock, [&] { return shared->inside.load() == 0; });
}

void ThreadPool::Cancel() {
    std::lock_guard<std::mutex> lock(m_mutex);
    while (!m_tasks.empty()) {
        m_tasks.front()->Cancel();
        m_tasks.pop_front();
    }
    for (const std::shared_ptr<ThreadPoolTask>& task : m_running)
        task->Cancel();
}
