// A fixed set of worker threads that runs queued ThreadPoolTasks in passes.
//
//   ThreadPool pool;
//   pool.SetProgressCallback(OnProgress, self);   // int OnProgress(int total, int done, void* user)
//   pool.Enqueue(std::make_shared<MyTask>(...));  // queued tasks wait for the next pass
//   pool.Run();                                   // blocks; progress is reported on this thread
//
// A progress callback that answers 0 cancels every task of the pass: tasks not yet started are dropped
// at once, running ones see their IsCancelled() turn true and are waited for, so Run returns only when
// no worker touches them any more.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "taskpool/ThreadPoolTask.h"

class ThreadPool {
public:
    using ProgressCallback = int (*)(int total, int completed, void* userData);

    // Worker count used when the platform cannot tell its number of cores.
    static constexpr unsigned kFallbackWorkerCount = 4;

    // Starts hardware_concurrency() workers, or kFallbackWorkerCount when that reports 0.
    ThreadPool();
    // Starts `workerCount` workers (kFallbackWorkerCount when 0); lets tests pin the count.
    explicit ThreadPool(unsigned workerCount);
    // Lets the workers drain every job already handed to them, then joins them.
    ~ThreadPool();

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues a task for the next pass; no worker is woken.
    void Enqueue(std::shared_ptr<ThreadPoolTask> task);
    // Not synchronised: set it between passes, from the thread that runs them.
    void SetProgressCallback(ProgressCallback callback, void* userData);

    // Runs every queued task on the workers and returns when all have finished: half the workers take
    // the queue from the front, half from the back. Progress is reported on the calling thread as tasks
    // finish, at most about a hundred times a second, and no more once it has answered 0. The first
    // exception of a task cancels the rest of the pass and is rethrown here once the pass has ended.
    void Run();
    // Runs every queued task on the calling thread, in queue order. Meant for a pool that no other
    // thread feeds. Keeps GetTotalTasks()/GetCompletedTasks() up to date, unlike Run.
    void RunAsSingleThread();
    // Calls body(begin, end) over [0, count) in chunks of `grain`, on the calling thread and on all but
    // one of the workers at once, and returns when all chunks are done. For page-wide loops (compositing,
    // clearing) that must not wait behind a 10 ms progress poll. `body` runs on several threads at
    // once over disjoint ranges and must not throw. Call it between passes, never from a task.
    void ForEachChunk(int64_t count, int64_t grain,
                      const std::function<void(int64_t begin, int64_t end)>& body);
    // Cancels every queued task (which is then dropped) and every task of the pass in progress; the
    // tasks are let go outside the lock, so that the cost under it does not grow with their number.
    // Safe from the progress callback and from other threads, and as often as wanted.
    void Cancel();

    int GetCompletedTasks() const { return m_completedTasks.load(); }
    int GetTotalTasks() const { return m_totalTasks.load(); }
    std::size_t GetWorkerCount() const { return m_workers.size(); }

private:
    // One pass of Run or RunAsSingleThread, shared with the workers that run its tasks.
    struct Pass {
        std::size_t size = 0;                  // tasks in the pass
        std::atomic<std::size_t> finished{0};  // run, skipped as cancelled, or dropped unstarted
        std::shared_ptr<std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);
        std::mutex errorMutex;
        std::exception_ptr error;  // the first exception a task threw
    };

    void StartWorkers(unsigned count);
    // Worker-thread loop: takes chunk jobs first, then tasks of the pass, from the back of the pass if
    // `fromBack`, until the pool stops and nothing is queued.
    void WorkerLoop(bool fromBack);
    // Returns once a job is queued, the pool stops, or a few milliseconds have passed. Worker threads.
    void AwaitJob() const;
    // Runs one task of the pass unless the pass is cancelled, and counts it. Worker threads.
    void RunPassTask(Pass& pass, ThreadPoolTask& task);
    // Wakes the thread waiting in Run or ForEachChunk. Worker threads.
    void NotifyPassDone();
    // The number the workers look at without the lock. Called under m_mutex.
    void UpdateQueuedJobs() {
        m_queuedJobs.store(m_jobs.size() + m_passTasks.size(), std::memory_order_relaxed);
    }

    std::vector<std::thread> m_workers;
    std::deque<std::shared_ptr<ThreadPoolTask>> m_tasks;      // queued, not yet started
    std::deque<std::function<void()>> m_jobs;                 // chunks of ForEachChunk, taken first
    std::deque<std::shared_ptr<ThreadPoolTask>> m_passTasks;  // the pass in progress, not yet started
    std::shared_ptr<Pass> m_pass;                             // the pass in progress, for Cancel
    std::mutex m_mutex;                                       // guards the queues above and m_stop
    std::condition_variable m_condition;                      // idle workers wait here
    std::condition_variable m_passDone;                       // Run and ForEachChunk wait here
    std::atomic<bool> m_stop{false};           // set under m_mutex; idle workers also look without it
    std::atomic<std::size_t> m_queuedJobs{0};  // m_jobs.size(), for workers that look without the lock
    std::atomic<int32_t> m_totalTasks{0};      // tasks of the last single-threaded pass
    std::atomic<int32_t> m_completedTasks{0};  // finished in the last single-threaded pass
    void* m_userData = nullptr;
    ProgressCallback m_progressCallback = nullptr;
};
