#include "base/weak_closure.h"

#include <gtest/gtest.h>

#include <memory>

#include "base/object.h"

namespace zo_base {
namespace {

TEST(WeakClosureTest, DiesForEverWithItsGenerationAndWithItsOwner) {
  auto owner = std::make_unique<WeakCallbackFlag>();
  auto first = owner->ToWeakClosure<int>([](int code) { return code; });
  EXPECT_EQ(first(1), 1);
  owner->CancelWeakClosures();
  auto second = owner->ToWeakClosure<int>([](int code) { return code; });
  EXPECT_EQ(first(1), 0);
  EXPECT_EQ(second(2), 2);
  owner.reset();
  EXPECT_EQ(first(1) + second(2), 0);
}

}  // namespace
}  // namespace zo_base
