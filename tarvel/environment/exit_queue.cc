#include "tarvel/environment/exit_queue.h"

namespace zo_tarvel {

using zo_base::MutexLock;

void ExitQueue::Push(ExitRequest request) {
  MutexLock lock(lock_);
  requests_.push_back(request);
}

std::optional<ExitRequest> ExitQueue::Pop() {
  MutexLock lock(lock_);
  if (requests_.empty()) return std::nullopt;
  const ExitRequest next = requests_.front();
  requests_.pop_front();
  return next;
}

bool ExitQueue::Empty() {
  MutexLock lock(lock_);
  return requests_.empty();
}

}  // namespace zo_tarvel
