#pragma once

#include <string>
#include <vector>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// What the program ends with.
enum ExitCode {
  kDone = 0,
  kFailed = 1,         // Standard error says why.
  kUsageError = 2,     // The command line isn't right.
  kNoFreshAnswer = 3,  // What was printed is older than this run, or local.
  kUnresolved = 4,     // At least one host has no address.
};

struct RunOptions {
  ClientOptions client;
  int take = 0;              // Link addresses after each answer; 0 for as many as it has.
  double wait_seconds = 30;  // For the first update to end.
  bool follow = false;
  double every_seconds = 5;  // While following: between two link addresses.
};

// Prints what happens in a client as it happens.
ExitCode Run(RunOptions options);

struct LinksOptions {
  ClientOptions client;
  double wait_seconds = 10;
};

// Prints the link addresses of a fresh answer, or else of what there is.
ExitCode Links(LinksOptions options);

struct ResolveOptions {
  ClientOptions client;
  std::vector<std::string> hosts;
  double wait_seconds = 10;
};

// Prints what HTTPDNS says of hosts.
ExitCode Resolve(ResolveOptions options);

}  // namespace tarvel_cli
