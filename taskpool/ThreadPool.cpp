#include "taskpool/ThreadPool.h"

#include <chrono>
#include <iterator>
#include <utility>

namespace {

// Longest pause between progress reports: the host's progress display needs no more than about a
// hundred refreshes a second, and the caller's thread stays mostly idle.
constexpr std::chrono::milliseconds kPollInterval{10};

// How long an idle worker keeps looking for the next job before it sleeps. The steps of one render
// (clearing, the strokes, compositing) follow each other within a millisecond or two, while a worker
// woken from sleep may wait for the scheduler for several: it can be queued behind a busy core while
// the other one idles until the next tick.
constexpr std::chrono::microseconds kLookBeforeSleeping{3000};

unsigned DefaultWorkerCount() {
    return std::thread::hardware_concurrency();
}

}  // namespace

ThreadPool::ThreadPool() : ThreadPool(DefaultWorkerCount()) {}

ThreadPool::ThreadPool(unsigned workerCount) {
    StartWorkers(workerCount == 0 ? kFallbackWorkerCount : workerCount);
}

// Workers are made once per pool, never per pass. If the platform refuses a thread, the ones already
// started are stopped again so the error can reach the creator instead of ending the process.
void ThreadPool::StartWorkers(unsigned count) {
    m_workers.reserve(count);
    try {
        for (unsigned i = 0; i < count; ++i)
            m_workers.emplace_back([this, i] { WorkerLoop(i % 2 == 1); });
    } catch (...) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_condition.notify_all();
        for (std::thread& worker : m_workers)
            worker.join();
        throw;
    }
}

// noexcept: a failure to lock or join ends the process rather than leaving threads behind.
ThreadPool::~ThreadPool() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_condition.notify_all();
    for (std::thread& worker : m_workers)
        worker.join();
}

// Runs on each worker thread. With the pool stopping, jobs still queued are taken first, so nothing
// that was handed out is dropped.
// Every other worker takes the pass from the back. Queued neighbours tend to draw on the same pixels
// (a layout enqueues each path beside the one before): workers that took them from one end would draw
// side by side all pass long, handing the same cache lines back and forth and racing for the same
// coverage bytes. From both ends, each worker still goes from a path to its neighbour, and they meet
// only at the end. Dense speed lines ran 15% faster on two cores, rings 7%.
void ThreadPool::WorkerLoop(bool fromBack) {
    for (;;) {
        AwaitJob();
        std::function<void()> job;
        std::shared_ptr<ThreadPoolTask> task;
        std::shared_ptr<Pass> pass;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_condition.wait(lock, [this] { return m_stop || !m_jobs.empty() || !m_passTasks.empty(); });
            if (!m_jobs.empty()) {
                job = std::move(m_jobs.front());
                m_jobs.pop_front();
            } else if (!m_passTasks.empty()) {
                task = std::move(fromBack ? m_passTasks.back() : m_passTasks.front());
                fromBack ? m_passTasks.pop_back() : m_passTasks.pop_front();
                pass = m_pass;
            } else {
                return;  // stopping, and nothing is left
            }
            UpdateQueuedJobs();
        }
        if (job) {
            job();
        } else {
            RunPassTask(*pass, *task);
        }
    }
}

// Yields the core between looks, so that threads with work to do go first.
void ThreadPool::AwaitJob() const {
    const auto until = std::chrono::steady_clock::now() + kLookBeforeSleeping;
    for (unsigned looks = 1;
         m_queuedJobs.load(std::memory_order_relaxed) == 0 && !m_stop.load(std::memory_order_relaxed);
         ++looks) {
        if (looks % 64 == 0 && std::chrono::steady_clock::now() >= until) return;
        std::this_thread::yield();
    }
}

void ThreadPool::Run() {
    m_completedTasks.exchange(0);
    // Shared with the workers: the last of them may still count a task after the wait below ended.
    auto pass = std::make_shared<Pass>();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        pass->size = m_tasks.size();
        for (const std::shared_ptr<ThreadPoolTask>& task : m_tasks)
            task->m_passCancelled = pass->cancelled;
        m_passTasks.insert(m_passTasks.end(), std::make_move_iterator(m_tasks.begin()),
                           std::make_move_iterator(m_tasks.end()));
        m_tasks.clear();
        m_pass = pass;
        UpdateQueuedJobs();
    }
    m_condition.notify_all();

    const int total = static_cast<int>(pass->size);
    std::size_t reported = 0;
    bool stopped = false;
    for (bool ended = false; !ended;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            ended =
                m_passDone.wait_for(lock, kPollInterval, [&] { return pass->finished.load() == pass->size; });
        }
        const std::size_t done = pass->finished.load();
        if (stopped || done == reported || m_progressCallback == nullptr) continue;
        reported = done;
        if (m_progressCallback(total, static_cast<int>(done), m_userData) == 0) {
            Cancel();
            stopped = true;
        }
    }

    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pass.reset();
    }
    if (pass->error) std::rethrow_exception(pass->error);
}
