#pragma once

#include <atomic>
#include <optional>

namespace zo_tarvel {

// Sees to it that a running environment is stopped when the process ends or the library is
// unloaded.
//
// Threads: any; a process may end on one thread while another takes the environment down.
class Goalkeeper {
 public:
  // Takes its post, unless it stands there, and registers the process-exit handler. Handlers of
  // earlier lives stay registered: they find nobody and do nothing.
  void Arm();

  // At the last exit: leaves its post. Answers whether that exit comes from the handler, and
  // nothing when nobody stood there.
  std::optional<bool> Dismiss();

 private:
  static void OnProcessExit() noexcept;

  enum class State { kAbsent, kArmed, kByProcessExit };
  std::atomic<State> state_{State::kAbsent};
};

Goalkeeper& GetGoalkeeper();

}  // namespace zo_tarvel
