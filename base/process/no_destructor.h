#pragma once

#include <new>
#include <utility>

namespace zo_base {

// A static object that is never destroyed, for state that other threads may still touch while the
// process runs its exit handlers. The memory goes with the image.
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

  // Puts a new T in the place of the one that is there, which is left as it is: for a forked child,
  // where a thread that is no more may have had it in hand.
  template <class... Args>
  void Renew(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace zo_base
