#include "tarvel/environment/goalkeeper.h"

#include "base/process/forked_child.h"
#include "base/process/process_exit.h"
#include "base/thread/library_call.h"
#include "tarvel/environment/environment_manager_storage.h"

namespace zo_tarvel {

Goalkeeper& GetGoalkeeper() {
  static Goalkeeper goalkeeper;  // Nothing to destroy.
  return goalkeeper;
}

void Goalkeeper::Arm() {
  // A start while the handler runs registers another: the new environment needs one of its own.
  if (state_.exchange(State::kArmed) != State::kArmed) {
    zo_base::OnProcessExitOrUnload(OnProcessExit);
  }
}

std::optional<bool> Goalkeeper::Dismiss() {
  State armed = State::kArmed;
  if (state_.compare_exchange_strong(armed, State::kAbsent)) return false;
  if (armed == State::kByProcessExit) return true;  // The handler clears the state itself.
  return std::nullopt;
}

void Goalkeeper::OnProcessExit() noexcept {
  if (zo_base::InLogFunction()) return zo_base::ActAsForkedChild();
  const zo_base::LibraryCall call;
  Goalkeeper& goalkeeper = GetGoalkeeper();
  State state = State::kArmed;
  if (!goalkeeper.state_.compare_exchange_strong(state, State::kByProcessExit)) return;
  if (const auto storage = GetStorage()) storage->gate.Exit({.id = 0, .ends_process = true});
  state = State::kByProcessExit;
  goalkeeper.state_.compare_exchange_strong(state, State::kAbsent);
}

}  // namespace zo_tarvel
