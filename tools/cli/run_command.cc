#include <chrono>

#include "tools/cli/client.h"
#include "tools/cli/command_scope.h"
#include "tools/cli/commands.h"

namespace tarvel_cli {

namespace {

using Seconds = std::chrono::duration<double>;

// Prints until the user wants to stop.
void Follow(Client& client, const RunOptions& options) {
  for (;;) {
    switch (client.Wait(Seconds(options.every_seconds))) {
      case Client::Event::kStop:
        return;
      case Client::Event::kUpdate:
        if (client.is_fresh()) client.PrintLinks(options.take);
        break;
      case Client::Event::kTimeOut:
        client.PrintNextLink();
    }
  }
}

}  // namespace

ExitCode Run(RunOptions options) {
  CommandScope scope(options.client);
  Client client(options.client, scope);
  client.PrintNextLink();
  if (options.follow) {
    Follow(client, options);
    return kDone;
  }
  client.AwaitFirstUpdate(Seconds(options.wait_seconds));
  client.PrintLinks(options.take);
  client.AwaitExceptionRecords();
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

}  // namespace tarvel_cli
