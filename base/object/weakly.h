#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace zo_base {

// Ties a callback to its owner: `f(T&, arguments...)`, which holds the owner while it runs. Once
// the owner is destroyed, a call does nothing and returns a value-initialised result. For what
// crosses threads: unlike a weak closure it can't meet a destructor that runs at the same moment.
template <class T, class F>
auto Weakly(const std::shared_ptr<T>& owner, F f) {
  return [weak = std::weak_ptr<T>(owner), f = std::move(f)]<class... Args>(Args&&... args) {
    using Result = std::invoke_result_t<const F&, T&, Args...>;
    if (const auto living = weak.lock()) return f(*living, std::forward<Args>(args)...);
    if constexpr (!std::is_void_v<Result>) return Result();
  };
}

// The same for a ZOEnableSharedFromThis, as its own members write it: Weakly(this, f).
template <class T, class F>
auto Weakly(T* owner, F f) {
  return Weakly(owner->template shared_from_this<T>(), std::move(f));
}

}  // namespace zo_base
