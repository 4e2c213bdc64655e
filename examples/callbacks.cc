// Hears of updates and attempts, of silence, and tells the library that the network has changed.
//
//   tarvel_example_callbacks [DIRECTORY [LBS-URL]]
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "example_settings.h"

namespace {

// Counts the updates that have ended, on whatever thread.
class Updates {
 public:
  void Ended() {
    const std::lock_guard<std::mutex> lock(lock_);
    ++count_;
    changed_.notify_all();
  }
  bool WaitFor(int count) {
    std::unique_lock<std::mutex> lock(lock_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return count_ >= count; });
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int count_ = 0;  // Guarded by lock_.
};

}  // namespace

int main(int argc, char** argv) {
  Updates updates;  // Outlives the client, whose callbacks use it.
  tarvel::Settings settings = ExampleSettings(argc, argv);
  settings.on_attempt = [](const tarvel::Attempt& attempt) {
    std::printf("attempt: status %d%s%s\n", attempt.status, attempt.status == 0 ? ", " : "",
                attempt.status == 0 ? attempt.body.c_str() : "");
  };
  settings.on_update = [&updates](const tarvel::UpdateResult& result) {
    std::printf("update: %s\n", result.fresh ? "fresh answer" : "failed");
    updates.Ended();
  };
  settings.on_silence = [&updates] {
    std::printf("no update has ended\n");
    updates.Ended();
  };
  settings.silence = std::chrono::seconds(3);
  settings.account_id = [] { return std::string("account-1"); };

  auto client = StartExample(settings);
  if (!client) return 1;
  client->Update(true);
  if (!updates.WaitFor(1)) return 1;

  // A phone has left its Wi-Fi for a network that has IPv4 only.
  client->NotifyNetworkChanged(tarvel::Family::kIPv4);
  client->Update(true);
  return updates.WaitFor(2) ? 0 : 1;
}
