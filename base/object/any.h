#pragma once

#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace zo_base {

// Raised by ZOAnyCast on a wrong type.
class BadZOAnyCast : public std::bad_cast {
 public:
  const char* what() const noexcept override { return "BadZOAnyCast: failed conversion ZOAnyCast"; }
};

// A value of any copyable type. Copying it copies the value. Not synchronised.
class ZOAny {
 public:
  class placeholder {
   public:
    virtual ~placeholder() = default;
    virtual const std::type_info& type() const noexcept = 0;
    virtual std::unique_ptr<placeholder> clone() const = 0;
  };

  template <class T>
  class holder final : public placeholder {
   public:
    explicit holder(T initial) : value(std::move(initial)) {}
    const std::type_info& type() const noexcept override { return typeid(T); }
    std::unique_ptr<placeholder> clone() const override {
      return std::make_unique<holder<T>>(value);
    }

    T value;
  };

  ZOAny() noexcept = default;
  ZOAny(const ZOAny& other) : content_(other.content_ ? other.content_->clone() : nullptr) {}
  ZOAny(ZOAny&&) noexcept = default;
  template <class T, class V = std::decay_t<T>, class = std::enable_if_t<!std::is_same_v<V, ZOAny>>>
  ZOAny(T&& value) : content_(std::make_unique<holder<V>>(std::forward<T>(value))) {}

  ZOAny& operator=(ZOAny other) noexcept {
    content_.swap(other.content_);
    return *this;
  }

  // The type of the value; `void` when empty.
  const std::type_info& type() const noexcept { return content_ ? content_->type() : typeid(void); }

 private:
  template <class T>
  friend T& ZOAnyCast(ZOAny& any);

  std::unique_ptr<placeholder> content_;
};

// The stored value. Raises BadZOAnyCast when `any` holds another type. Types compare by name, so a
// value made in one image can be read in another.
template <class T>
T& ZOAnyCast(ZOAny& any) {
  if (any.type() != typeid(T)) throw BadZOAnyCast();
  return static_cast<ZOAny::holder<T>*>(any.content_.get())->value;
}

template <class T>
const T& ZOAnyCast(const ZOAny& any) {
  return ZOAnyCast<T>(const_cast<ZOAny&>(any));
}

}  // namespace zo_base
