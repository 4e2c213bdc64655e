#include "base/any.h"

#include <gmock/gmock.h>

#include <string>

namespace zo_base {
namespace {

TEST(ZOAnyTest, CopiesAreIndependent) {
  ZOAny original = std::string("one");
  ZOAny assigned;
  assigned = original;
  const ZOAny copy = original;
  ZOAnyCast<std::string>(original) = "two";
  original = *&original;
  EXPECT_EQ(ZOAnyCast<std::string>(original), "two");
  EXPECT_EQ(ZOAnyCast<std::string>(copy), "one");
  EXPECT_EQ(ZOAnyCast<std::string>(assigned), "one");
}

TEST(ZOAnyTest, RaisesOnEveryTypeButTheStoredOne) {
  ZOAny text = std::string("text");
  ZOAny empty;
  EXPECT_THAT([&] { ZOAnyCast<const char*>(text); },
              testing::ThrowsMessage<BadZOAnyCast>("BadZOAnyCast: failed conversion ZOAnyCast"));
  EXPECT_EQ(empty.type(), typeid(void));
  EXPECT_THROW(ZOAnyCast<std::string>(empty), std::bad_cast);
}

}  // namespace
}  // namespace zo_base
