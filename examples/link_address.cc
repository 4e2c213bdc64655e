// Takes link addresses, as a client does before each connection attempt.
//
//   tarvel_example_link_address [DIRECTORY [LBS-URL]]
#include <chrono>
#include <cstdio>

#include "example_settings.h"

int main(int argc, char** argv) {
  auto client = StartExample(ExampleSettings(argc, argv));
  if (!client) return 1;

  // There is an address at once: from the cache of an earlier run, or from the settings.
  if (const auto link = client->NextLinkAddress()) {
    std::printf("at once: %s\n", link->ToString().c_str());
  }
  const bool answered = client->WaitForAnswer(std::chrono::seconds(5));
  std::printf("%s\n", answered ? "a server has answered" : "no server has answered");
  // The default follows the last of the list.
  for (int i = 0; i < 3; ++i) {
    const auto link = client->NextLinkAddress();
    if (!link) return 1;
    std::printf("link to %s\n", link->ToString().c_str());
  }
}
