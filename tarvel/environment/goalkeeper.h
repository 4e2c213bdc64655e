#pragma once

#include <atomic>
#include <optional>

namespace zo_tarvel {

// Stops a running environment when the process ends or the library is unloaded.
//
// Threads: any; a process may end on one thread while another takes the environment down.
class Goalkeeper {
 public:
  // Registers the exit handler unless already armed. Handlers of earlier environments stay
  // registered and do nothing.
  void Arm();

  // For the last exit. Returns whether that exit comes from the handler; nullopt when not armed.
  std::optional<bool> Dismiss();

 private:
  static void OnProcessExit() noexcept;

  enum class State { kAbsent, kArmed, kByProcessExit };
  std::atomic<State> state_{State::kAbsent};
};

Goalkeeper& GetGoalkeeper();

}  // namespace zo_tarvel
