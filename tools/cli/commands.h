#pragma once

#include <string>
#include <vector>

#include "tools/cli/client_options.h"
#include "tools/inspect/report.h"

namespace tarvel_cli {

// The exit status of the program.
enum ExitCode {
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
};

// Starts a client and prints each event.
ExitCode Run(RunOptions options);

struct LinksOptions {
  ClientOptions client;
  double wait_seconds = 10;
};

// Prints the link addresses of a fresh answer, or of the cached one when no fresh answer comes.
ExitCode Links(LinksOptions options);

struct ResolveOptions {
  ClientOptions client;
  std::vector<std::string> hosts;
  double wait_seconds = 10;
};

// Prints the addresses that HTTPDNS has for the hosts.
ExitCode Resolve(ResolveOptions options);

struct InspectOptions {
  std::string directory;
  tarvel_inspect::Filter filter;
  bool json = false;
};

// Prints what a client has left in its directory.
ExitCode Inspect(const InspectOptions& options);

}  // namespace tarvel_cli
