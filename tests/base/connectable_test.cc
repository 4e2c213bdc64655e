#include "base/connectable.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace zo_base {
namespace {

const char* SIG_Main() { return "SIG_Main"; }

// An emitter with the slots a, b and c, in that order, that note their calls.
struct Scene {
  zo_sigslot::connection Connect(char name, std::function<void()> then = nullptr) {
    return emitter->Connect<>(SIG_Main, [this, name, then] {
      calls += name;
      if (then) then();
    });
  }
  std::string CallsOfOneEmission() {
    calls.clear();
    if (emitter) emitter->Emit<>(SIG_Main);
    return calls;
  }

  std::string calls;
  std::function<void()> next_call_of_b_does;
  std::unique_ptr<ConnectAble> emitter = std::make_unique<ConnectAble>();
  zo_sigslot::connection a = Connect('a');
  zo_sigslot::connection b = Connect('b', [this] {
    if (const auto action = std::exchange(next_call_of_b_does, nullptr)) action();
  });
  zo_sigslot::connection c = Connect('c');
};

TEST(ConnectAbleTest, ASlotsChangesTakeEffectFromTheNextEmission) {
  const struct {
    const char* what_b_does;
    std::function<void(Scene&)> action;
    const char* this_emission;
    const char* next_emission;
  } cases[] = {
      {"connect", [](Scene& my) { my.Connect('d'); }, "abc", "abcd"},
      {"disconnect itself", [](Scene& my) { my.b.disconnect(); }, "abc", "ac"},
      {"disconnect a later slot", [](Scene& my) { my.c.disconnect(); }, "abc", "ab"},
      {"drop the signal", [](Scene& my) { my.emitter->Disconnect(SIG_Main); }, "abc", ""},
      {"emit", [](Scene& my) { my.emitter->Emit<>(SIG_Main); }, "ababcc", "abc"},
      {"destroy the emitter, then disconnect a later slot",
       [](Scene& my) { my.emitter.reset(), my.c.disconnect(); }, "abc", ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what_b_does);
    Scene scene;
    scene.next_call_of_b_does = [&] { row.action(scene); };
    EXPECT_EQ(scene.CallsOfOneEmission(), row.this_emission);
    EXPECT_EQ(scene.CallsOfOneEmission(), row.next_emission);
  }
}

TEST(ConnectAbleTest, EmitsToLastingSlotsWhileAnotherThreadConnectsAndDisconnects) {
  Scene scene;
  std::thread other([&] {
    for (int i = 0; i < 2'000; ++i) scene.emitter->Connect<>(SIG_Main, [] {}).disconnect();
  });
  for (int i = 0; i < 2'000; ++i) scene.emitter->Emit<>(SIG_Main);
  other.join();
  EXPECT_EQ(scene.calls.size(), 3 * 2'000u);
}

}  // namespace
}  // namespace zo_base
