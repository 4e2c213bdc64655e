#pragma once

#include <memory>

#include "base/object/connectable.h"
#include "base/object/weak_closure.h"

namespace zo_base {

// std::dynamic_pointer_cast, which a build for size takes out of the standard library.
template <class U, class T>
std::shared_ptr<U> DynamicPointerCast(const std::shared_ptr<T>& pointer) {
  U* const as_u = dynamic_cast<U*>(pointer.get());
  return as_u == nullptr ? nullptr : std::shared_ptr<U>(pointer, as_u);
}

// Root of the object hierarchy.
class _IZOObject {
 public:
  virtual ~_IZOObject() = default;
};

// A list of mixins, each inherited virtually so that a class may meet the same one twice.
template <class... Mixins>
class __ZOObject;

template <>
class __ZOObject<> : public virtual _IZOObject {};

template <class First, class... Rest>
class __ZOObject<First, Rest...> : public virtual First, public virtual __ZOObject<Rest...> {};

// shared_from_this for a virtual base. Make the object with std::make_shared.
template <class T>
class ZOEnableSharedFromThis
    : public virtual std::enable_shared_from_this<ZOEnableSharedFromThis<T>> {
 public:
  virtual ~ZOEnableSharedFromThis() = default;

  using std::enable_shared_from_this<ZOEnableSharedFromThis<T>>::shared_from_this;
  // This object as a `U`, or null if it is none. Raises std::bad_weak_ptr without an owner.
  template <class U>
  std::shared_ptr<U> shared_from_this() {
    return DynamicPointerCast<U>(
        std::enable_shared_from_this<ZOEnableSharedFromThis<T>>::shared_from_this());
  }
};

// Base of every long-lived object: weak closures, signals and shared-from-this.
class ZOObjectIMPL
    : public __ZOObject<WeakClosureSupportor, ConnectAble, ZOEnableSharedFromThis<ZOObjectIMPL>> {};

// A member that makes weak closures for a class that is no ZOObjectIMPL itself.
class WeakCallbackFlag : public ZOObjectIMPL {};

}  // namespace zo_base
