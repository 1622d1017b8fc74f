#include "finishingqueue.h"

#include <sys/resource.h>
#include <unistd.h>

FinishingQueue::FinishingQueue(int threads)
{
    for (int i = 0; i < threads; ++i)
        _threads.emplace_back([this] { work(); });
}

FinishingQueue::~FinishingQueue()
{
    {
        const std::lock_guard lock(_mutex);
        _closing = true;
    }
    _wake.notify_all();
    for (std::thread &t : _threads)
        t.join();
}

void FinishingQueue::post(std::function<void()> job)
{
    {
        const std::lock_guard lock(_mutex);
        _jobs.push_back(std::move(job));
    }
    _wake.notify_one();
}

void FinishingQueue::drain()
{
    std::unique_lock lock(_mutex);
    _idle.wait(lock, [this] { return _jobs.empty() && _running == 0; });
}

void FinishingQueue::work()
{
    // Bulk reading: on a busy machine the receiver's thread, which answers every camera, goes first.
    ::setpriority(PRIO_PROCESS, ::gettid(), 10);
    std::unique_lock lock(_mutex);
    for (;;) {
        _wake.wait(lock, [this] { return _closing || !_jobs.empty(); });
        if (_jobs.empty())
            return;   // closing, and nothing is left to do
        std::function<void()> job = std::move(_jobs.front());
        _jobs.pop_front();
        ++_running;
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
        --_running;
        if (_jobs.empty() && _running == 0)
            _idle.notify_all();
    }
}
