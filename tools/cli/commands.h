#pragma once

#include <string>
#include <vector>

#include "tools/cli/client_options.h"
#include "tools/cli/timed_value.h"
#include "tools/inspect/report.h"

namespace tarvel_cli {

// The exit status of the program. When a signal has ended a command, 128 more than its number.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,         // Standard error says why.
  kUsageError = 2,     // The command line is wrong.
  kNoFreshAnswer = 3,  // The printed answer is a cached or a local one.
  kUnresolved = 4,     // At least one host has no address.
};

struct RunOptions {
  ClientOptions client;
  int take = 0;              // Link addresses after each answer; 0 for as many as it has.
  double wait_seconds = 30;  // For the first update to end.
  bool follow = false;
  double every_seconds = 5;  // While following: between two link addresses.
  bool force = false;        // Ask for a fresh answer even when the cached one is still valid.
  bool explain = false;      // Print the verdict about this life at the end.
  std::vector<TimedValue> network_changes;  // To "any", "4" or "6".
  std::vector<TimedValue> token_changes;
};

// Starts a client and prints each event.
int Run(RunOptions options);

struct LinksOptions {
  ClientOptions client;
  double wait_seconds = 10;
  bool force = false;
};

// Prints the link addresses of a fresh answer, or of the cached one when no fresh answer comes.
int Links(LinksOptions options);

struct ResolveOptions {
  ClientOptions client;
  std::vector<std::string> hosts;
  double wait_seconds = 10;
};

// Prints the addresses that HTTPDNS has for the hosts.
int Resolve(ResolveOptions options);

struct InspectOptions {
  std::string directory;
  std::string log_dir;  // Empty unless the log is elsewhere.
  tarvel_inspect::Filter filter;
  bool json = false;
  std::string html;  // File for the page; empty for none.
};

// Prints what a client has left in its directory.
int Inspect(const InspectOptions& options);

}  // namespace tarvel_cli
