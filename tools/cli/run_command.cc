#include <chrono>
#include <string>

#include "base/json/json11.h"
#include "tools/cli/client.h"
#include "tools/cli/command_scope.h"
#include "tools/cli/commands.h"
#include "tools/cli/own_life.h"
#include "tools/terminal/json_text.h"
#include "tools/terminal/messages.h"

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
  if (!scope.stop.HaveCome()) client.PrintLinks(options.take);
  client.AwaitExceptionRecords();
  if (const int interrupted = scope.stop.ExitStatus()) return interrupted;
  return client.is_fresh() ? kDone : kNoFreshAnswer;
}

void Explain(const ClientOptions& options, Printer& printer) {
  const auto report = InspectOwnLife(options);
  if (!report.verdict) {
    tarvel_terminal::WriteError("this run has left no log, so --explain has no verdict");
    return;
  }
  const auto verdict = tarvel_inspect::ToJson({report})["directories"][0]["verdict"];
  std::string error;
  printer.PrintBlock(
      "verdict", tarvel_inspect::ToText(*report.verdict),
      {{"verdict", zo_base::json11::Json::parse(tarvel_terminal::JsonText(verdict), error)}});
}

}  // namespace

int Run(RunOptions options) {
  CommandScope scope(options.client);
  const int status = RunClient(options, scope);
  const bool was_interrupted = scope.stop.HaveCome();
  if (options.explain && (options.follow || !was_interrupted)) {
    Explain(options.client, scope.printer);
  }
  scope.printer.PrintExit();
  return status;
}

}  // namespace tarvel_cli
