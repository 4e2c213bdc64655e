#include <chrono>
#include <cstdio>

#include "tools/cli/client.h"
#include "tools/cli/command_scope.h"
#include "tools/cli/commands.h"
#include "tools/cli/own_life.h"

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

tarvel::Family FamilyNamed(const std::string& name) {
  if (name == "4") return tarvel::Family::kIPv4;
  return name == "6" ? tarvel::Family::kIPv6 : tarvel::Family::kAny;
}

void Schedule(const RunOptions& options, Client& client, Printer& printer) {
  for (const auto& [seconds, family] : options.network_changes) {
    client.At(Seconds(seconds), [&printer, family = family](tarvel::Client& library) {
      printer.Print("network", "changes, family " + family, {{"family", family}});
      library.NotifyNetworkChanged(FamilyNamed(family));
    });
  }
  for (const auto& [seconds, token] : options.token_changes) {
    client.At(Seconds(seconds), [&printer, token = token](tarvel::Client& library) {
      printer.Print("token", "changes", {});
      library.SetToken(token);
    });
  }
}

int RunClient(const RunOptions& options, CommandScope& scope) {
  Client client(options.client, scope, options.force);
  Schedule(options, client, scope.printer);
  client.PrintNextLink();
  if (options.follow) {
    Follow(client, options);
    return scope.stop.ExitStatus();
  }
  client.AwaitFirstUpdate(Seconds(options.wait_seconds));
  if (const int interrupted = scope.stop.ExitStatus()) return interrupted;
  client.PrintLinks(options.take);
  client.AwaitExceptionRecords();
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

void Explain(const ClientOptions& options) {
  const auto report = InspectOwnLife(options);
  if (!report.verdict) return;
  if (options.json) {
    const auto verdict = tarvel_inspect::ToJson({report})["directories"][0]["verdict"];
    std::printf("%s\n",
                nlohmann::ordered_json{{"event", "verdict"}, {"verdict", verdict}}.dump().c_str());
  } else {
    std::printf("\n%s", tarvel_inspect::ToText(*report.verdict).c_str());
  }
}

}  // namespace

int Run(RunOptions options) {
  CommandScope scope(options.client);
  const int status = RunClient(options, scope);
  const bool was_interrupted = scope.stop.HaveCome();
  if (options.explain && (options.follow || !was_interrupted)) Explain(options.client);
  return status;
}

}  // namespace tarvel_cli
