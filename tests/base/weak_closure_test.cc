#include "base/weak_closure.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "base/object.h"

namespace zo_base {
namespace {

TEST(WeakClosureTest, DiesForEverWithItsGeneration) {
  WeakCallbackFlag owner;
  std::string runs;
  const std::function<void()> first = owner.ToWeakClosure([&] { runs += "1"; });
  const std::function<void()> same_generation = owner.ToWeakClosure([&] { runs += "1"; });
  first();
  same_generation();
  owner.CancelWeakClosures();
  const std::function<void()> second = owner.ToWeakClosure([&] { runs += "2"; });
  first();
  same_generation();
  second();
  EXPECT_EQ(runs, "112");
}

TEST(WeakClosureTest, AnswersAZeroResultOnceItsOwnerHasGone) {
  struct Verdict {
    bool accepted;
    int code;
  };
  auto owner = std::make_unique<WeakCallbackFlag>();
  const std::function<bool(const std::string&)> is_yes =
      owner->ToWeakClosure<bool>([](const std::string& text) { return text == "yes"; });
  const std::function<Verdict(int)> judge = owner->ToWeakClosure<Verdict>([](int code) {
    return Verdict{true, code};
  });
  EXPECT_TRUE(is_yes("yes"));
  EXPECT_EQ(judge(7).code, 7);
  owner.reset();
  EXPECT_FALSE(is_yes("yes"));
  EXPECT_FALSE(judge(7).accepted);
  EXPECT_EQ(judge(7).code, 0);
}

}  // namespace
}  // namespace zo_base
