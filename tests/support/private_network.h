#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/event.h"

namespace test_support {

// Moves this process into a network of its own, where only the loopback works, and where
// /etc/resolv.conf has the given text; nothing outside changes. Children inherit it.
//
// False when the system doesn't permit it, or has no /etc/resolv.conf: the test is to be skipped,
// and the process to end, as it may have gone half of the way. Call it while the process has one
// thread, best in a child made for it: the system refuses several (and a sanitizer may have one of
// its own).
[[nodiscard]] bool EnterPrivateNetwork(const std::string& resolv_conf_text);

// A name server at 127.0.0.53 that takes every question and answers none. To be used in a private
// network; throws where the address is taken.
class SilentNameServer {
 public:
  static constexpr const char* kResolvConf = "nameserver 127.0.0.53\n";

  SilentNameServer();
  ~SilentNameServer();
  SilentNameServer(const SilentNameServer&) = delete;
  SilentNameServer& operator=(const SilentNameServer&) = delete;

  int questions() const { return questions_; }                   // Datagrams so far.
  [[nodiscard]] bool AwaitQuestion() { return asked_.Await(); }  // The first.

 private:
  void TakeQuestionsUntilStopped();

  const int fd_;
  const int stop_fd_;
  std::atomic<int> questions_{0};
  Event asked_;
  std::jthread thread_;  // Last: all that it uses exists before it starts.
};

}  // namespace test_support
