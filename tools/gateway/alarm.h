#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace gateway {

/// Calls on a thread of its own when the time has come, unless it ends before. When it has ended,
/// the call is over or never comes.
class Alarm {
 public:
    Alarm(std::chrono::steady_clock::time_point at, std::function<void()> call)
        : thread_([at, call = std::move(call)](const std::stop_token& ended) {
              std::mutex mutex;
              std::condition_variable_any wake;
              std::unique_lock lock(mutex);
              wake.wait_until(lock, ended, at, [] { return false; });
              if (!ended.stop_requested()) call();
          }) {}

 private:
    std::jthread thread_;
};

}  // namespace gateway
