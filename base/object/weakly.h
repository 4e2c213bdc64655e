#pragma once

#include <memory>
#include <utility>

namespace zo_base {

// A task `f(T&)` that holds its owner while it runs, and does nothing once that has gone. For what
// crosses threads: unlike a weak closure it can't meet a destructor that runs at the same moment.
template <class T, class F>
auto Weakly(const std::shared_ptr<T>& owner, F f) {
  return [weak = std::weak_ptr<T>(owner), f = std::move(f)] {
    if (const auto living = weak.lock()) f(*living);
  };
}

}  // namespace zo_base
