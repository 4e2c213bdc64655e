#include "tools/backend/lab_command.h"

#include <cstdio>
#include <memory>

#include "tools/backend/lab/lab.h"
#include "tools/backend/lab/private_network.h"

namespace tarvel_backend {

namespace {

constexpr int kUsageError = 2;

int Close(std::FILE* file) { return file == stdout ? 0 : std::fclose(file); }
using OutputFile = std::unique_ptr<std::FILE, decltype(&Close)>;

OutputFile OpenReport(const std::string& path) {
  OutputFile file(path.empty() ? stdout : std::fopen(path.c_str(), "we"), Close);
  if (file == nullptr) ThrowSystemError("can't write the report to " + path);
  return file;
}

}  // namespace

LabCommand::LabCommand(CLI::App& app)
    : command_(app.add_subcommand("lab", "Run a program in a private network with such servers")) {
  command_->footer(
      "tarvel-backend lab FILE [--report FILE] -- PROGRAM [ARGUMENT]...\n"
      "runs PROGRAM with the servers that FILE describes, plays FILE's faults, and ends with the\n"
      "status of PROGRAM. docs/lab.md has the form of FILE.");
  command_->add_option("file", file_, "JSON file of hosts, a name server and faults")->required();
  command_->add_option("--report", report_file_,
                       "File to write the report to. Default: standard output");
}

int LabCommand::Run(const std::vector<std::string>& program) const {
  if (program.empty()) {
    std::fputs("tarvel-backend: no program to run: give -- PROGRAM at the end\n", stderr);
    return kUsageError;
  }
  Plan plan = ReadPlan(file_);
  const OutputFile report = OpenReport(report_file_);
  Lab lab(std::move(plan), program);
  const int status = lab.Run();
  lab.report().Write(report.get());
  return status;
}

}  // namespace tarvel_backend
