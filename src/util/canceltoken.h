#pragma once
// A cancel flag shared by the thread that cancels (usually the GUI) and a worker that polls it.
// Thread-safe.
#include <atomic>

class CancelToken
{
public:
    void cancel() { _cancelled.store(true, std::memory_order_relaxed); }
    void reset() { _cancelled.store(false, std::memory_order_relaxed); }
    bool isCancelled() const { return _cancelled.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> _cancelled{false};
};
