#include <chrono>

#include "tools/cli/client.h"
#include "tools/cli/client_files.h"
#include "tools/cli/commands.h"

namespace tarvel_cli {

ExitCode Links(LinksOptions options) {
  const StopSignals stop;
  const DataDirectory directory(options.client);
  PrepareHttpDNS(options.client);
  Printer printer(options.client.json);
  Client client(options.client, stop, printer);
  const std::chrono::duration<double> limit(options.wait_seconds);
  if (client.Wait(limit) == Client::Event::kTimeOut) printer.Print("timeout", kNoUpdate, {});
  client.PrintLinks(0);
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

}  // namespace tarvel_cli
