// Prints each failed request as the JSON that a client would send to its own statistics.
//
//   tarvel_example_exception_records [DIRECTORY [LBS-URL]]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "example_settings.h"

int main(int argc, char** argv) {
  std::atomic<int> records{0};
  tarvel::Settings settings = ExampleSettings(argc, argv);
  settings.httpdns = false;  // Its servers can't be reached here either.
  settings.backup_lbs_urls = {"https://127.0.0.1:9/lbs"};  // Nobody listens there.
  settings.on_exception = [&records](const tarvel::ExceptionRecord& record) {
    std::printf("%s\n", tarvel::ToJson(record).c_str());
    ++records;
  };
  auto client = StartExample(settings);
  if (!client) return 1;
  client->WaitForAnswer(std::chrono::seconds(5));
  // Records follow within seconds of the request: the library asks the name server first.
  for (int i = 0; i < 50 && records == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  std::printf("%d records\n", records.load());
}
