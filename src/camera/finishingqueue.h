#pragma once
// Worker threads for the receiver's work that reads a whole received file (the completeness
// check, the comparison with a stored file of the same name), so a large or crafted upload never
// holds the receiver's own thread, where every other camera is answered. Jobs run in the order
// posted, on whichever worker is free; each job hands its result back to the receiver's thread
// itself. The workers run at a lower priority than the receiver's thread. post() and drain()
// from any thread; the destructor drains and joins.
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class FinishingQueue
{
public:
    explicit FinishingQueue(int threads);
    ~FinishingQueue();
    FinishingQueue(const FinishingQueue &) = delete;
    FinishingQueue &operator=(const FinishingQueue &) = delete;

    void post(std::function<void()> job);
    // Returns once every job posted so far has run.
    void drain();

private:
    void work();

    std::mutex _mutex;
    std::condition_variable _wake;   // a job was posted, or the queue is closing
    std::condition_variable _idle;   // a job ended
    std::deque<std::function<void()>> _jobs;   // guarded by _mutex
    int _running = 0;                          // guarded by _mutex
    bool _closing = false;                     // guarded by _mutex
    std::vector<std::thread> _threads;
};
