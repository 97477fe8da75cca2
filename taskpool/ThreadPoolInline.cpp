// The pool for systems without threads (a browser page without shared memory): no workers, and a pass
// runs its tasks on the caller's thread, so progress and cancelling work as with workers.
#include "taskpool/ThreadPool.h"

ThreadPool::ThreadPool() : ThreadPool(0) {}

ThreadPool::ThreadPool(unsigned) {}

ThreadPool::~ThreadPool() = default;

void ThreadPool::StartWorkers(unsigned) {}

void ThreadPool::WorkerLoop(bool) {}

void ThreadPool::Run() {
    RunAsSingleThread();
}
