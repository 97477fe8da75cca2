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

// Meant for a pool that no other thread feeds: the pass is taken out of the queue under the lock and
// run from a list of its own, so the workers never see it, and a Cancel from another thread stops it
// through the pass's flag.
void ThreadPool::RunAsSingleThread() {
    m_completedTasks.exchange(0);
    auto pass = std::make_shared<Pass>();
    std::deque<std::shared_ptr<ThreadPoolTask>> pending;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        pending.swap(m_tasks);
        for (const std::shared_ptr<ThreadPoolTask>& task : pending)
            task->m_passCancelled = pass->cancelled;
        pass->size = pending.size();
        m_pass = pass;
    }
    m_totalTasks.exchange(static_cast<int32_t>(pass->size));
    struct EndPass {
        ThreadPool* pool;
        ~EndPass() {
            std::lock_guard<std::mutex> lock(pool->m_mutex);
            pool->m_pass.reset();
        }
    } endPass{this};

    for (const std::shared_ptr<ThreadPoolTask>& task : pending) {
        if (pass->cancelled->load(std::memory_order_relaxed)) break;
        task->Run();
        const int previous = m_completedTasks.fetch_add(1);
        if (m_progressCallback != nullptr &&
            m_progressCallback(m_totalTasks.load(), previous + 1, m_userData) == 0) {
            Cancel();
            break;
        }
    }
}

void ThreadPool::RunPassTask(Pass& pass, ThreadPoolTask& task) {
    if (!task.IsCancelled()) {
        try {
            task.Run();
        } catch (...) {
            {
                std::lock_guard<std::mutex> lock(pass.errorMutex);
                if (!pass.error) pass.error = std::current_exception();
            }
            Cancel();  // the rest of the pass is of no use to a caller that gets an exception
        }
    }
    if (pass.finished.fetch_add(1) + 1 == pass.size) NotifyPassDone();
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
            UpdateQueuedJobs();
        }
        m_condition.notify_all();
    }
    work(body);
    // Every chunk is taken; wait for helpers still inside `body`, which lives on the caller's stack.
    std::unique_lock<std::mutex> lock(m_mutex);
    m_passDone.wait(lock, [&] { return shared->inside.load() == 0; });
}

void ThreadPool::Cancel() {
    std::deque<std::shared_ptr<ThreadPoolTask>> queued;
    std::deque<std::shared_ptr<ThreadPoolTask>> unstarted;
    std::shared_ptr<Pass> pass;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        queued.swap(m_tasks);
        unstarted.swap(m_passTasks);
        pass = m_pass;
        UpdateQueuedJobs();
    }
    for (const std::shared_ptr<ThreadPoolTask>& task : queued)
        task->Cancel();
    if (pass == nullptr) return;
    pass->cancelled->store(true, std::memory_order_relaxed);
    // The dropped tasks count as finished, so that the pass ends with the ones still running.
    const std::size_t dropped = unstarted.size();
    if (dropped > 0 && pass->finished.fetch_add(dropped) + dropped == pass->size) NotifyPassDone();
}
