#include <chrono>
#include <cstdint>

#include "tools/cli/client.h"
#include "tools/cli/commands.h"

namespace tarvel_cli {

ExitCode Links(LinksOptions options) {
  const DataDirectory directory(options.client);
  PrepareHttpDNS(options.client);
  Printer printer(options.client.json);
  Client client(options.client, printer);
  client.Wait(std::chrono::duration<double>(options.wait_seconds));
  const std::int32_t count = client.CountLinks();
  for (std::int32_t i = 0; i < count; ++i) client.PrintNextLink();
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

}  // namespace tarvel_cli
