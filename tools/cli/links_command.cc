#include <chrono>

#include "tools/cli/client.h"
#include "tools/cli/command_scope.h"
#include "tools/cli/commands.h"

namespace tarvel_cli {

namespace {

int PrintLinks(const LinksOptions& options, CommandScope& scope) {
  Client client(options.client, scope, options.force);
  client.AwaitFirstUpdate(std::chrono::duration<double>(options.wait_seconds));
  if (!scope.stop.HaveCome()) client.PrintLinks(0);
  if (const int interrupted = scope.stop.ExitStatus()) return interrupted;
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

}  // namespace

int Links(LinksOptions options) {
  CommandScope scope(options.client);
  const int status = PrintLinks(options, scope);
  scope.printer.PrintExit();
  return status;
}

}  // namespace tarvel_cli
