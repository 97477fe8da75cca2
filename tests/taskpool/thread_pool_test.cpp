#include "taskpool/ThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// Counts its runs, remembers the thread it ran on and, when given one, appends its id to an order.
class CountingTask : public ThreadPoolTask {
public:
    explicit CountingTask(std::vector<int>* order = nullptr, int id = 0) : m_order(order), m_id(id) {}
    void Run() override {
        ++m_runs;
        m_thread = std::this_thread::get_id();
        if (m_order != nullptr) m_order->push_back(m_id);
    }
    int Runs() const { return m_runs.load(); }
    std::thread::id Thread() const { return m_thread; }

private:
    std::vector<int>* m_order;
    int m_id;
    std::atomic<int> m_runs{0};
    std::thread::id m_thread;
};

class ThrowingTask : public ThreadPoolTask {
public:
    void Run() override { throw std::runtime_error("task failed"); }
};

// Records every progress report; the report numbered stopAtReport (from 1) answers 0.
struct ProgressLog {
    std::vector<std::pair<int, int>> reports;  // (total, done)
    int stopAtReport = -1;

    static int Callback(int total, int done, void* user) {
        auto* log = static_cast<ProgressLog*>(user);
        log->reports.emplace_back(total, done);
        return static_cast<int>(log->reports.size()) == log->stopAtReport ? 0 : 1;
    }
};

std::vector<std::shared_ptr<CountingTask>> EnqueueCounting(ThreadPool& pool, int count,
                                                           std::vector<int>* order = nullptr) {
    std::vector<std::shared_ptr<CountingTask>> tasks;
    for (int i = 0; i < count; ++i) {
        tasks.push_back(std::make_shared<CountingTask>(order, i));
        pool.Enqueue(tasks.back());
    }
    return tasks;
}

}  // namespace

TEST(thread_pool_test, a_task_exception_reaches_the_caller_in_either_mode) {
    ThreadPool pool(2);
    pool.Enqueue(std::make_shared<ThrowingTask>());
    EXPECT_THROW(pool.Run(), std::runtime_error);
    pool.Enqueue(std::make_shared<ThrowingTask>());
    EXPECT_THROW(pool.RunAsSingleThread(), std::runtime_error);
}

TEST(thread_pool_test, single_threaded_passes_run_in_queue_order_on_the_caller_and_stop_on_a_zero_answer) {
    ThreadPool pool(2);
    std::vector<int> order;
    const auto tasks = EnqueueCounting(pool, 5, &order);
    ProgressLog log;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    pool.RunAsSingleThread();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(tasks[4]->Thread(), std::this_thread::get_id());
    EXPECT_EQ(pool.GetTotalTasks(), 5);
    EXPECT_EQ(pool.GetCompletedTasks(), 5);
    EXPECT_EQ(log.reports, (std::vector<std::pair<int, int>>{{5, 1}, {5, 2}, {5, 3}, {5, 4}, {5, 5}}));
    pool.Run();  // clears the finished count, keeps the total of the single-threaded pass
    EXPECT_EQ(pool.GetCompletedTasks(), 0);
    EXPECT_EQ(pool.GetTotalTasks(), 5);

    const auto stopped = EnqueueCounting(pool, 5);
    log.reports.clear();
    log.stopAtReport = 1;
    pool.RunAsSingleThread();
    EXPECT_EQ(pool.GetCompletedTasks(), 1);
    EXPECT_EQ(pool.GetTotalTasks(), 5);
    EXPECT_EQ(stopped[1]->Runs(), 0);
    EXPECT_TRUE(stopped[4]->IsCancelled());
    // The dropped tasks are gone: the next pass has nothing to do.
    pool.RunAsSingleThread();
    EXPECT_EQ(pool.GetTotalTasks(), 0);
}

// Runs until its pass is cancelled, as a long stroke that polls does.
struct PollingTask : ThreadPoolTask {
    void Run() override {
        while (!IsCancelled())
            std::this_thread::yield();
    }
};

TEST(thread_pool_test, a_zero_answer_drops_the_unstarted_tasks_of_a_large_pass_and_stops_reporting) {
    ThreadPool pool(1);  // takes the queue from the front
    const auto first = EnqueueCounting(pool, 1);
    pool.Enqueue(std::make_shared<PollingTask>());
    const auto rest = EnqueueCounting(pool, 100000);
    ProgressLog log;
    log.stopAtReport = 1;
    pool.SetProgressCallback(&ProgressLog::Callback, &log);
    pool.Run();  // returns only once the polling task has seen the stop
    EXPECT_EQ(first[0]->Runs(), 1);
    for (const auto& task : rest)
        ASSERT_TRUE(task->Runs() == 0 && task->IsCancelled());
    EXPECT_EQ(log.reports, (std::vector<std::pair<int, int>>{{100002, 1}}));
    pool.Cancel();  // between passes: nothing to do
    pool.Run();
    EXPECT_EQ(log.reports.size(), 1u);  // an empty pass reports nothing
}
