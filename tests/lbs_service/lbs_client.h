#pragma once

#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/http_agent/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/temp_directory.h"

namespace zo_tarvel {

inline constexpr char kPath[] = "/lbs/conf.jsp";
inline constexpr char kDeadUrl[] = "http://127.0.0.1:1/lbs/conf.jsp";  // Nobody listens there.

// What callbacks put in on their threads, and the test takes out in order.
template <class T>
class Mailbox {
 public:
  void Put(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  // Throws when there has been nothing for so long that there will be nothing.
  T Take() {
    std::unique_lock lock(mutex_);
    const bool came =
        changed_.wait_for(lock, std::chrono::seconds(20), [this] { return !items_.empty(); });
    if (!came) throw std::runtime_error("nothing came");
    T item = std::move(items_.front());
    items_.pop_front();
    return item;
  }
  std::size_t size() {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<T> items_;
};

struct Told {
  std::int32_t code;
  std::string response;
  std::string thread;
};
struct SubAnswer {
  std::int32_t code;
  std::string url;
  std::string body;
};
struct Link {
  std::string host;
  std::int32_t port;
  EMAddressFamily family;
  bool operator==(const Link&) const = default;
};
void PrintTo(const Link& link, std::ostream* out);

using Getter = void (IZOTarvelLBSService::*)(char*);

// A client of the service, with files, server and environment of its own. The environment has no
// token, so nothing is asked for until a test says so.
class LBSServiceTest : public testing::Test {
 protected:
  LBSServiceTest();
  void TearDown() override;  // Nothing runs any more when a test's own members go.

  // Has the environment up, with the service made but not started.
  void Restart(const _ZOTarvelEnvironmentSettings& settings);
  void Restart() { Restart(environment_settings_); }
  // Starts the service on its settings, and waits until its thread has begun.
  void Init();
  // Has the service tell `told_` and `sub_answers_`.
  void SetCallbacks();
  void SetMainUrl(const std::string& url);
  void SetBackupUrls(const std::vector<std::string>& urls);

  // Asks by force, and waits until that has ended. `family` as that of Update.
  Told Update(EMAddressFamily family = kEMAddressFamilyIPv4);
  // Waits until the update that TakeTold tells of has ended in all.
  Told TakeTold();
  std::vector<SubAnswer> TakeSubAnswers();
  // Waits until all that was posted to the service's thread so far has run.
  void RunAllPosted();

  IZOTarvelObject* object() { return GetTarvelObject(1); }
  IZOTarvelLBSService* service() { return object()->GetLBSService(); }
  template <class F>
  static std::string TextOf(F getter) {
    const std::unique_ptr<char, decltype(&std::free)> out(
        static_cast<char*>(std::calloc(kLBSTextBufferSize, 1)), std::free);
    getter(out.get());
    return out.get();
  }
  std::string TextOf(Getter getter) {
    return TextOf([&](char* out) { (service()->*getter)(out); });
  }
  // Waits for an update under way, unless told otherwise.
  std::string Response(bool no_wait = false) {
    return TextOf([&](char* out) { service()->GetLBSResponse(no_wait, out); });
  }
  Link NextLink(EMAddressFamily wish = kEMAddressFamilyAny);

  // The good answer of this name, whose "lbs" is the server; `more` is put into "common".
  std::string Answer(const std::string& name, const std::string& more = "") const;
  // Has the server answer with `texts` in turn, and with the last one ever after.
  void Serve(std::vector<std::string> texts);
  // Has it say so once it is asked, and answer with `text` when it may.
  void ServeHeld(const std::string& text);
  std::string CachePath() const;
  std::string Cached(const std::string& key) const;  // The value in the file.

  const test_support::TempDirectory directory_;
  Mailbox<Told> told_;
  Mailbox<SubAnswer> sub_answers_;
  test_support::Event asked_;
  test_support::Event may_answer_;
  _ZOTarvelEnvironmentSettings environment_settings_;
  _ZOTarvelLBSSettings settings_;
  std::optional<test_support::HttpServer> server_{std::in_place};
  const std::string url_ = server_->url(kPath);  // For handlers, too.
  std::optional<test_support::AgentEnvironment> environment_;
};

}  // namespace zo_tarvel
