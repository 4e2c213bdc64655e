#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

// The least cost of passing a message from thread to thread.
namespace tarvel_bench {

// Holds one message at most. Put the next one only after the last was taken.
//
// Threads: one that puts and one that takes.
template <class Message>
class Mailbox {
 public:
  void Put(Message message) {
    const std::lock_guard lock(mutex_);
    message_ = message;
    filled_.notify_one();  // Under the lock: who takes the message may destroy this.
  }
  Message Take() {
    std::unique_lock lock(mutex_);
    filled_.wait(lock, [this] { return message_.has_value(); });
    return *std::exchange(message_, std::nullopt);
  }

 private:
  std::mutex mutex_;
  std::condition_variable filled_;
  std::optional<Message> message_;  // Guarded by `mutex_`.
};

// Only the way of a request through the threads of a client: from the caller to a near thread, to a
// far one, and back over the near one.
class Relay {
 public:
  explicit Relay(std::function<void()> far_work)
      : far_work_(std::move(far_work)), near_([this] { RunNear(); }), far_([this] { RunFar(); }) {}
  ~Relay() { near_box_.Put(Leg::kEnd); }

  void GoAndReturn() {
    near_box_.Put(Leg::kOut);
    home_box_.Take();
  }

 private:
  enum class Leg { kOut, kBack, kEnd };

  void RunNear() {
    Leg leg{};
    while ((leg = near_box_.Take()) != Leg::kEnd) {
      (leg == Leg::kOut ? far_box_ : home_box_).Put(leg);
    }
    far_box_.Put(Leg::kEnd);
  }
  void RunFar() {
    while (far_box_.Take() != Leg::kEnd) {
      far_work_();
      near_box_.Put(Leg::kBack);
    }
  }

  const std::function<void()> far_work_;
  Mailbox<Leg> near_box_;
  Mailbox<Leg> far_box_;
  Mailbox<Leg> home_box_;
  std::jthread near_;  // Last: all that they use exists before they start.
  std::jthread far_;
};

}  // namespace tarvel_bench
