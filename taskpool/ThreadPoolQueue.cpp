// The parts of the pool that are the same with or without worker threads: the queue, progress,
// the single-threaded pass and cancelling.
#include "taskpool/ThreadPool.h"

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

void ThreadPool::Cancel() {
    std::lock_guard<std::mutex> lock(m_mutex);
    while (!m_tasks.empty()) {
        m_tasks.front()->Cancel();
        m_tasks.pop_front();
    }
    for (const std::shared_ptr<ThreadPoolTask>& task : m_running)
        task->Cancel();
}
