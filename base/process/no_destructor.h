#pragma once

#include <new>
#include <utility>

namespace zo_base {

// A static object that is never destroyed, for state that other threads may still use while the
// process runs its exit handlers.
template <class T>
class NoDestructor {
 public:
  template <class... Args>
  explicit NoDestructor(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;

  T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
  T* operator->() { return &**this; }

  // Constructs a new T over the old one, without destroying that: for a forked child, where a
  // thread of the parent may have been changing it.
  template <class... Args>
  void Renew(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace zo_base
