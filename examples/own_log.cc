// Takes the library's log lines into the client's own log.
//
//   tarvel_example_own_log [DIRECTORY [LBS-URL]]
#include <atomic>
#include <cstdio>

#include "example_settings.h"

int main(int argc, char** argv) {
  std::atomic<int> lines{0};
  tarvel::Settings settings = ExampleSettings(argc, argv);
  // Called on several threads in parallel, with locks of the library held: so it only writes.
  settings.on_log = [&lines](const char* line) {
    std::fprintf(stderr, "my log: %s", line);
    ++lines;
  };
  {
    auto client = StartExample(settings);
    if (!client) return 1;
    client->NextLinkAddress();
  }  // The end of the client stops the library, which logs that too.
  std::printf("%d lines\n", lines.load());
  return lines > 0 ? 0 : 1;
}
