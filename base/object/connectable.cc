#include "base/object/connectable.h"

namespace zo_base {

void ConnectAble::Disconnect(SignalId signal) {
  std::map<SignalId, ZOAny> dropped;  // Slots die after the lock is released.
  MutexLock lock(signals->lock);
  if (signal == nullptr) {
    dropped.swap(signals->signals);
  } else if (auto entry = signals->signals.extract(signal)) {
    dropped.insert(std::move(entry));
  }
}

bool ConnectAble::HasConnections(SignalId signal) const {
  MutexLock lock(signals->lock);
  return signals->signals.count(signal) != 0;
}

}  // namespace zo_base
