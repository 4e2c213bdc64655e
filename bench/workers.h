#pragma once

#include <uv.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "base/thread/task_thread.h"

// The contenders that run closures on another thread. Each starts its thread in the constructor and
// joins it in the destructor; `Post` may be called from any thread. Each is set up as an expert
// would do it.
namespace tarvel_bench {

class TaskThreadWorker {
 public:
  TaskThreadWorker() : thread_(std::make_shared<zo_base::TaskThread>("bench")) { thread_->Start(); }
  ~TaskThreadWorker() { thread_->Stop(); }

  template <class F>
  void Post(F&& task) {
    thread_->PostTask(std::forward<F>(task));
  }
  zo_base::TaskThread& thread() { return *thread_; }

 private:
  const std::shared_ptr<zo_base::TaskThread> thread_;
};

// The same thread, reached through its ITaskLoop handle.
class TaskLoopWorker {
 public:
  template <class F>
  void Post(F&& task) {
    loop_->PostTask(std::forward<F>(task));
  }

 private:
  TaskThreadWorker worker_;
  const std::shared_ptr<zo_base::ITaskLoop> loop_ = worker_.thread().GetTaskLoop();
};

class AsioWorker {
 public:
  AsioWorker() : thread_([this] { io_.run(); }) {}
  ~AsioWorker() {
    io_.stop();
    thread_.join();
  }

  template <class F>
  void Post(F&& task) {
    boost::asio::post(io_, std::forward<F>(task));
  }
  boost::asio::io_context& io() { return io_; }

 private:
  boost::asio::io_context io_{1};  // A promise that one thread runs it: fewer wake-ups.
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_ =
      boost::asio::make_work_guard(io_);
  std::thread thread_;
};

// An event loop that uv_async_send wakes for a locked queue. uv_async_send skips the system call
// while an earlier wake-up is pending.
class UvWorker {
 public:
  UvWorker() {
    uv_loop_init(&loop_);
    uv_async_init(&loop_, &wake_,
                  [](uv_async_t* wake) { static_cast<UvWorker*>(wake->data)->RunPosted(); });
    wake_.data = this;
    thread_ = std::thread([this] { uv_run(&loop_, UV_RUN_DEFAULT); });
  }
  ~UvWorker() {
    Post([this] {
      uv_walk(
          &loop_, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
    });
    thread_.join();
    uv_loop_close(&loop_);
  }

  void Post(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      posted_.push_back(std::move(task));
    }
    uv_async_send(&wake_);
  }
  uv_loop_t* loop() { return &loop_; }  // For use on the worker's thread.

 private:
  void RunPosted() {
    {
      std::lock_guard lock(mutex_);
      taken_.swap(posted_);
    }
    for (const auto& task : taken_) task();
    taken_.clear();
  }

  uv_loop_t loop_;
  uv_async_t wake_;
  std::mutex mutex_;
  std::deque<std::function<void()>> posted_;  // Guarded by `mutex_`.
  std::deque<std::function<void()>> taken_;   // Not locked: used only on the worker's thread.
  std::thread thread_;
};

// The textbook queue, whose worker takes one task under the lock at a time.
class QueueWorker {
 public:
  QueueWorker() : thread_([this] { Run(); }) {}
  ~QueueWorker() {
    Post(nullptr);
    thread_.join();
  }

  void Post(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      posted_.push_back(std::move(task));
    }
    posted_one_.notify_one();
  }

 private:
  void Run() {
    while (const auto task = Take()) task();
  }
  std::function<void()> Take() {
    std::unique_lock lock(mutex_);
    posted_one_.wait(lock, [this] { return !posted_.empty(); });
    auto task = std::move(posted_.front());
    posted_.pop_front();
    return task;
  }

  std::mutex mutex_;
  std::condition_variable posted_one_;
  std::deque<std::function<void()>> posted_;  // Guarded by `mutex_`; an empty task ends the worker.
  std::thread thread_;
};

// The same queue, with a worker that takes all tasks at once.
class SwappedQueueWorker {
 public:
  SwappedQueueWorker() : thread_([this] { Run(); }) {}
  ~SwappedQueueWorker() {
    Post([this] { ended_ = true; });
    thread_.join();
  }

  void Post(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      posted_.push_back(std::move(task));
    }
    posted_some_.notify_one();
  }

 private:
  void Run() {
    std::deque<std::function<void()>> taken;
    while (!ended_) {
      {
        std::unique_lock lock(mutex_);
        posted_some_.wait(lock, [this] { return !posted_.empty(); });
        taken.swap(posted_);
      }
      for (const auto& task : taken) task();
      taken.clear();
    }
  }

  std::mutex mutex_;
  std::condition_variable posted_some_;
  std::deque<std::function<void()>> posted_;  // Guarded by `mutex_`.
  bool ended_ = false;                        // Not locked: touched only by the worker's thread.
  std::thread thread_;
};

}  // namespace tarvel_bench
