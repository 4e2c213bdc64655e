#include "tools/backend/lab_command.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

#include "tools/backend/lab/lab.h"
#include "tools/backend/lab/private_network.h"
#include "tools/terminal/file_name.h"
#include "tools/terminal/messages.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_backend {

namespace {

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

using ReportFile = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

// Returns null for standard output. Opened before the program starts, so that a wrong name is
// reported at once.
ReportFile OpenReport(const std::string& path) {
  if (path.empty()) return {nullptr, std::fclose};
  ReportFile file(std::fopen(path.c_str(), "we"), std::fclose);
  if (file == nullptr) ThrowSystemError("can't write the report to " + path);
  return file;
}

// Returns 0, or the exit status of a failure after it has been reported.
int WriteReport(const std::string& text, ReportFile file, const std::string& path) {
  if (file == nullptr) {
    tarvel_terminal::WriteOutput(text);
    return tarvel_terminal::StatusWithOutput(0);
  }
  const bool is_taken = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  if (std::fclose(file.release()) == 0 && is_taken) return 0;
  tarvel_terminal::WriteError("can't write the report to " + path + ": " +
                              std::generic_category().message(errno));
  return kFailed;
}

}  // namespace

LabCommand::LabCommand(CLI::App& app)
    : command_(app.add_subcommand("lab", "Run a program in a private network with such servers")) {
  command_->footer(
      "tarvel-backend lab FILE [--report FILE] -- PROGRAM [ARGUMENT]...\n"
      "runs PROGRAM with the servers that FILE describes, plays FILE's faults, and ends with the\n"
      "status of PROGRAM. docs/lab.md has the form of FILE.");
  command_->add_option("file", file_, "JSON file of hosts, a name server and faults")->required();
  command_
      ->add_option("--report", report_file_,
                   "File to write the report to. Default: standard output")
      ->check(tarvel_terminal::CheckFileName);
}

int LabCommand::Run(const std::vector<std::string>& program) const {
  if (program.empty()) {
    tarvel_terminal::WriteError("no program to run: give -- PROGRAM at the end");
    return kUsageError;
  }
  Plan plan = ReadPlan(file_);
  ReportFile report = OpenReport(report_file_);
  Lab lab(std::move(plan), program);
  const int status = lab.Run();
  const int report_status = WriteReport(lab.report().ToText(), std::move(report), report_file_);
  return status != 0 ? status : report_status;
}

}  // namespace tarvel_backend
