#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace gateway {

/// Runs tasks on threads that it starts only when none is idle: an HTTP connection holds a thread
/// as long as it lives, and a server with few of them shouldn't start hundreds.
class WorkerPool {
 public:
    using Task = std::function<void()>;

    explicit WorkerPool(std::size_t maxThreads) : maxThreads_(maxThreads) {}

    void enqueue(Task task) {
        const std::scoped_lock lock(mutex_);
        tasks_.push_back(std::move(task));
        if (idle_ < tasks_.size() && threads_.size() < maxThreads_)
            threads_.emplace_back([this] { work(); });
        wake_.notify_one();
    }

    /// Runs what is queued to its end and joins the threads. Nothing is enqueued afterwards.
    void shutdown() {
        {
            const std::scoped_lock lock(mutex_);
            ended_ = true;
        }
        wake_.notify_all();
        for (auto& thread : threads_)
            thread.join();
    }

 private:
    void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            ++idle_;
            wake_.wait(lock, [this] { return ended_ || !tasks_.empty(); });
            --idle_;
            if (tasks_.empty()) return;
            const Task task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    const std::size_t maxThreads_;
    std::vector<std::thread> threads_;  // enqueue() and shutdown() are called on one thread
    std::mutex mutex_;                  // guards what follows
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::size_t idle_ = 0;
    bool ended_ = false;
};

}  // namespace gateway
