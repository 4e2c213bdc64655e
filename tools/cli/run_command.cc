#include <chrono>
#include <cstdint>

#include "tools/cli/client.h"
#include "tools/cli/commands.h"

namespace tarvel_cli {

namespace {

using Seconds = std::chrono::duration<double>;

void PrintLinks(Client& client, int count) {
  const std::int32_t all = client.CountLinks();
  for (int i = 0; i < (count > 0 ? count : all); ++i) client.PrintNextLink();
}

// Until the user wants to stop.
void Follow(Client& client, const RunOptions& options) {
  for (;;) {
    switch (client.Wait(Seconds(options.every_seconds))) {
      case Client::Event::kStop:
        return;
      case Client::Event::kUpdate:
        if (client.is_fresh()) PrintLinks(client, options.take);
        break;
      case Client::Event::kTimeOut:
        client.PrintNextLink();
    }
  }
}

}  // namespace

ExitCode Run(RunOptions options) {
  const DataDirectory directory(options.client);
  PrepareHttpDNS(options.client);
  Printer printer(options.client.json);
  Client client(options.client, printer);
  client.PrintNextLink();
  if (options.follow) {
    Follow(client, options);
    return kDone;
  }
  const Client::Event event = client.Wait(Seconds(options.wait_seconds));
  if (event == Client::Event::kStop) return kDone;
  PrintLinks(client, options.take);
  client.AwaitExceptionRecords();
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

}  // namespace tarvel_cli
