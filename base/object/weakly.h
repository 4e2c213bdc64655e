#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace zo_base {

// Ties a callback `f(T&, arguments...)` to its owner, which lives at least until a call has
// returned. After the owner's end a call does nothing and returns a value-initialised result. For
// calls from another thread, where a weak closure could run during the destructor.
template <class T, class F>
[[nodiscard]] auto Weakly(const std::shared_ptr<T>& owner, F f) {
  return [weak = std::weak_ptr<T>(owner), f = std::move(f)]<class... Args>(Args&&... args) {
    using Result = std::invoke_result_t<const F&, T&, Args...>;
    if (const auto living = weak.lock()) return f(*living, std::forward<Args>(args)...);
    if constexpr (!std::is_void_v<Result>) return Result();
  };
}

// The same for a ZOEnableSharedFromThis, as its own members write it: Weakly(this, f).
template <class T, class F>
[[nodiscard]] auto Weakly(T* owner, F f) {
  return Weakly(std::shared_ptr<T>(owner->shared_from_this(), owner), std::move(f));
}

}  // namespace zo_base
