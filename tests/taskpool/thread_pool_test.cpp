#include "taskpool/ThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// Long enough that a healthy pool never gets near it; only keeps a broken pool from hanging the suite.
constexpr auto kSafetyLimit = std::chrono::seconds(20);

// Counts its runs and remembers the thread it ran on.
class CountingTask : public ThreadPoolTask {
public:
    explicit CountingTask(std::atomic<int>* counter = nullptr) : m_counter(counter) {}
    void Run() override {
        ++m_runs;
        m_thread = std::this_thread::get_id();
        if (m_counter != nullptr) ++*m_counter;
    }
    int Runs() const { return m_runs.load(); }
    std::thread::id Thread() const { return m_thread; }

private:
    std::atomic<int>* m_counter;
    std::atomic<int> m_runs{0};
    std::thread::id m_thread;
};

// Runs until it is cancelled, as a stroke task that polls its flag does.
class WaitForCancelTask : public ThreadPoolTask {
public:
    void Run() override {
        m_started = true;
        const auto giveUp = std::chrono::steady_clock::now() + kSafetyLimit;
        while (!IsCancelled() && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        m_sawCancel = IsCancelled();
    }
    bool Started() const { return m_started.load(); }
    bool SawCancel() const { return m_sawCancel.load(); }

private:
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_sawCancel{false};
};

class ThrowingTask : public ThreadPoolTask {
public:
    void Run() override { throw std::runtime_error("task failed"); }
};

// Records every progress report and answers with a scripted result.
struct ProgressLog {
    std::vector<std::pair<int, int>> reports;  // (total, done)
    std::vector<std::thread::id> threads;
    int stopAtReport = -1;  // 1-based report that answers 0; -1 never

    static int Callback(int total, int done, void* user) {
        auto* log = static_cast<ProgressLog*>(user);
        log->reports.emplace_back(total, done);
        log->threads.push_back(std::this_thread::get_id());
        return static_cast<int>(log->reports.size()) == log->stopAtReport ? 0 : 1;
    }
};

std::vector<std::shared_ptr<CountingTask>> EnqueueCounting(ThreadPool& pool, int count,
                                                           std::atomic<int>* counter = nullptr) {
    std::vector<std::shared_ptr<CountingTask>> tasks;
    for (int i = 0; i < count; ++i) {
        tasks.push_back(std::make_shared<CountingTask>(counter));
        pool.Enqueue(tasks.back());
    }
    return tasks;
}

}  // namespace

TEST(thread_pool_test, worker_count_is_one_per_core_and_zero_falls_back_to_four) {
    const unsigned cores = std::thread::hardware_concurrency();
    EXPECT_EQ(ThreadPool().GetWorkerCount(), cores == 0 ? 4u : cores);
    EXPECT_EQ(ThreadPool(0).GetWorkerCount(), 4u);
}

TEST(thread_pool_test, run_with_an_empty_queue_returns_without_reporting) {
    ThreadPool pool(2);
    ProgressLog log;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    pool.Run();
    EXPECT_TRUE(log.reports.empty());
    EXPECT_EQ(pool.GetCompletedTasks(), 0);
    EXPECT_EQ(pool.GetTotalTasks(), 0);
}

TEST(thread_pool_test, queued_tasks_wait_for_run) {
    ThreadPool pool(2);
    auto tasks = EnqueueCounting(pool, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(tasks[0]->Runs(), 0);
    pool.Run();
    EXPECT_EQ(tasks[0]->Runs(), 1);
}

TEST(thread_pool_test, each_pass_runs_every_task_once_on_the_workers_and_reports_on_the_caller) {
    ThreadPool pool(3);
    ProgressLog log;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    for (int pass = 0; pass < 2; ++pass) {  // the pool is reusable after a pass
        SCOPED_TRACE(pass);
        log.reports.clear();
        log.threads.clear();
        const auto tasks = EnqueueCounting(pool, 20);
        pool.Run();
        for (const auto& task : tasks) {
            EXPECT_EQ(task->Runs(), 1);
            EXPECT_NE(task->Thread(), std::this_thread::get_id());
        }
        ASSERT_EQ(log.reports.size(), 20u);
        for (std::size_t i = 0; i < log.reports.size(); ++i) {
            EXPECT_EQ(log.reports[i], std::make_pair(20, static_cast<int>(i) + 1));
            EXPECT_EQ(log.threads[i], std::this_thread::get_id());
        }
    }
}

TEST(thread_pool_test, run_leaves_the_single_threaded_counters_alone) {
    ThreadPool pool(2);
    EnqueueCounting(pool, 3);
    pool.RunAsSingleThread();
    EnqueueCounting(pool, 5);
    pool.Run();
    EXPECT_EQ(pool.GetCompletedTasks(), 0);
    EXPECT_EQ(pool.GetTotalTasks(), 3);
}

TEST(thread_pool_test, a_zero_answer_during_run_cancels_every_task_and_still_waits_for_all) {
    ThreadPool pool(2);
    ProgressLog log;
    log.stopAtReport = 1;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    EnqueueCounting(pool, 1);  // finishes at once and triggers the stop
    std::vector<std::shared_ptr<WaitForCancelTask>> waiting;
    for (int i = 0; i < 6; ++i) {
        waiting.push_back(std::make_shared<WaitForCancelTask>());
        pool.Enqueue(waiting.back());
    }
    pool.Run();
    for (const auto& task : waiting) {
        EXPECT_TRUE(task->IsCancelled());
        EXPECT_TRUE(task->Started());  // handed-out jobs still run and find themselves cancelled
        EXPECT_TRUE(task->SawCancel());
    }
    // The callback goes on being told about the rest.
    EXPECT_EQ(log.reports.size(), 7u);
    EXPECT_EQ(log.reports.back(), std::make_pair(7, 7));
}

TEST(thread_pool_test, cancel_from_another_thread_reaches_running_tasks) {
    ThreadPool pool(2);
    auto a = std::make_shared<WaitForCancelTask>();
    auto b = std::make_shared<WaitForCancelTask>();
    pool.Enqueue(a);
    pool.Enqueue(b);
    std::thread canceller([&] {
        while (!(a->Started() && b->Started()))
            std::this_thread::yield();
        pool.Cancel();
    });
    pool.Run();
    canceller.join();
    EXPECT_TRUE(a->SawCancel());
    EXPECT_TRUE(b->SawCancel());
}

TEST(thread_pool_test, cancel_drops_queued_tasks_without_running_them) {
    ThreadPool pool(2);
    auto tasks = EnqueueCounting(pool, 1);
    pool.Cancel();
    EXPECT_TRUE(tasks[0]->IsCancelled());
    pool.Run();
    EXPECT_EQ(tasks[0]->Runs(), 0);
}

TEST(thread_pool_test, a_task_exception_reaches_the_caller_in_either_mode) {
    ThreadPool pool(2);
    pool.Enqueue(std::make_shared<ThrowingTask>());
    EXPECT_THROW(pool.Run(), std::runtime_error);
    ThreadPool single(1);
    single.Enqueue(std::make_shared<ThrowingTask>());
    EXPECT_THROW(single.RunAsSingleThread(), std::runtime_error);
}

TEST(thread_pool_test, single_threaded_pass_runs_in_queue_order_on_the_caller) {
    ThreadPool pool(2);
    std::vector<int> order;
    struct OrderTask : ThreadPoolTask {
        OrderTask(std::vector<int>* out, int id) : out(out), id(id) {}
        void Run() override {
            out->push_back(id);
            thread = std::this_thread::get_id();
        }
        std::vector<int>* out;
        int id;
        std::thread::id thread;
    };
    std::vector<std::shared_ptr<OrderTask>> tasks;
    for (int i = 0; i < 5; ++i) {
        tasks.push_back(std::make_shared<OrderTask>(&order, i));
        pool.Enqueue(tasks.back());
    }
    ProgressLog log;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    pool.RunAsSingleThread();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    for (const auto& task : tasks)
        EXPECT_EQ(task->thread, std::this_thread::get_id());
    EXPECT_EQ(pool.GetTotalTasks(), 5);
    EXPECT_EQ(pool.GetCompletedTasks(), 5);
    ASSERT_EQ(log.reports.size(), 5u);
    EXPECT_EQ(log.reports[0], std::make_pair(5, 1));
    EXPECT_EQ(log.reports[4], std::make_pair(5, 5));
}

TEST(thread_pool_test, a_zero_answer_in_a_single_threaded_pass_stops_after_one_task) {
    ThreadPool pool(2);
    const auto tasks = EnqueueCounting(pool, 5);
    ProgressLog log;
    log.stopAtReport = 1;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    pool.RunAsSingleThread();
    EXPECT_EQ(pool.GetCompletedTasks(), 1);
    EXPECT_EQ(pool.GetTotalTasks(), 5);
    EXPECT_EQ(log.reports.size(), 1u);
    EXPECT_EQ(tasks[0]->Runs(), 1);
    for (int i = 1; i < 5; ++i) {
        EXPECT_EQ(tasks[i]->Runs(), 0);
        EXPECT_TRUE(tasks[i]->IsCancelled());
    }
    // The dropped tasks are gone: the next pass has nothing to do.
    pool.RunAsSingleThread();
    EXPECT_EQ(pool.GetTotalTasks(), 0);
}

TEST(thread_pool_test, destruction_finishes_jobs_still_queued) {
    std::atomic<int> finished{0};
    std::atomic<bool> gate{false};
    // Holds the only worker until the test lets go, so the tasks behind it are still queued.
    struct GateTask : ThreadPoolTask {
        explicit GateTask(std::atomic<bool>* gate) : gate(gate) {}
        void Run() override {
            const auto giveUp = std::chrono::steady_clock::now() + kSafetyLimit;
            while (!gate->load() && std::chrono::steady_clock::now() < giveUp)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));  // let destruction begin first
        }
        std::atomic<bool>* gate;
    };
    {
        ThreadPool pool(1);
        pool.Enqueue(std::make_shared<ThrowingTask>());
        pool.Enqueue(std::make_shared<GateTask>(&gate));
        EnqueueCounting(pool, 4, &finished);
        // The failure leaves Run with the other jobs abandoned but still handed to the worker.
        EXPECT_THROW(pool.Run(), std::runtime_error);
        gate = true;
    }
    EXPECT_EQ(finished.load(), 4);
}
