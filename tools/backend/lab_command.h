#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tarvel_backend {

// `tarvel-backend lab FILE -- PROGRAM`, see docs/lab.md.
//
// Threads: the main one. Ownership: owns the values of its options, so it outlives the parsing.
class LabCommand {
 public:
  // Adds the subcommand.
  explicit LabCommand(CLI::App& app);

  // Returns whether the command line, which has been parsed, names the subcommand.
  bool is_chosen() const { return command_->parsed(); }
  // `program` is what follows "--". Returns the exit status. Throws std::runtime_error.
  int Run(const std::vector<std::string>& program) const;

 private:
  CLI::App* const command_;  // Of `app`.
  std::string file_;
  std::string report_file_;
};

}  // namespace tarvel_backend
