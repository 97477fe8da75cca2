#include "taskpool/ThreadPool.h"

#include <chrono>
#include <future>
#include <utility>

namespace {

// Pause between sweeps over the futures of a pass: the host's progress display needs no more than
// about a hundred refreshes a second, and the caller's thread stays mostly idle.
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
// Every other worker takes the queue from the back. Queued neighbours tend to draw on the same pixels
// (a layout enqueues each path beside the one before): workers that took them from one end would draw
// side by side all pass long, handing the same cache lines back and forth and racing for the same
// coverage bytes. From both ends, each worker still goes from a path to its neighbour, and they meet
// only at the end. Dense speed lines ran 15% faster on two cores, rings 7%.
void ThreadPool::WorkerLoop(bool fromBack) {
    for (;;) {
        AwaitJob();
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_condition.wait(lock, [this] { return m_stop || !m_jobs.empty(); });
            if (m_stop && m_jobs.empty()) return;
            if (fromBack) {
                job = std::move(m_jobs.back());
                m_jobs.pop_back();
            } else {
                job = std::move(m_jobs.front());
                m_jobs.pop_front();
            }
            m_queuedJobs.store(m_jobs.size(), std::memory_order_relaxed);
        }
        job();
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

    std::vector<std::future<void>> futures;
    // Counts this pass's finished jobs, so the wait below ends as soon as the last one returns
    // instead of at the next poll. Shared: an abandoned pass's jobs may outlive this call.
    auto finished = std::make_shared<std::atomic<std::size_t>>(0);
    std::size_t passSize = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        passSize = m_tasks.size();
        futures.reserve(passSize);
        while (!m_tasks.empty()) {
            std::shared_ptr<ThreadPoolTask> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            m_running.push_back(task);
            // The job owns its task, so a task whose future was abandoned (after an exception) stays
            // alive until a worker has finished it.
            auto packaged = std::make_shared<std::packaged_task<void()>>([task] { task->Run(); });
            futures.push_back(packaged->get_future());
            m_jobs.emplace_back([this, packaged, finished, passSize] {
                (*packaged)();
                if (finished->fetch_add(1) + 1 == passSize) NotifyPassDone();
            });
        }
        m_queuedJobs.store(m_jobs.size(), std::memory_order_relaxed);
    }
    m_condition.notify_all();

    const int total = static_cast<int>(futures.size());
    int done = 0;
    while (!futures.empty()) {
        std::size_t i = 0;
        while (i < futures.size()) {
            if (futures[i].wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
                ++i;
                continue;
            }
            futures[i].get();  // rethrows the task's exception and leaves the pass
            ++done;
            if (m_progressCallback != nullptr && m_progressCallback(total, done, m_userData) == 0) Cancel();
            // Swap-remove; the future moved into slot i is examined next.
            if (i + 1 < futures.size()) std::swap(futures[i], futures.back());
            futures.pop_back();
        }
        if (!futures.empty()) {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_passDone.wait_for(lock, kPollInterval, [&] { return finished->load() == passSize; });
        }
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    m_running.clear();
}
