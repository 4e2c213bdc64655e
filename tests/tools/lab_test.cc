#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/program.h"

// Labs with the command line client, as docs/lab.md shows them.
namespace {

using test_support::Program;

constexpr char kScenarios[] = LAB_SCENARIOS "/";

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class LabTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (Run("dropped_host.json", {"/bin/true"}) == 0) return;
    ASSERT_TRUE(Has(output_, "A private network needs") || Has(output_, "modprobe veth"))
        << output_;
    GTEST_SKIP() << output_;
  }

  static std::vector<std::string> Command(const std::string& scenario,
                                          const std::vector<std::string>& program) {
    std::vector<std::string> command{BACKEND, "lab", kScenarios + scenario, "--"};
    command.insert(command.end(), program.begin(), program.end());
    return command;
  }

  // Returns the exit status. `output_` has what the program and the lab have written.
  int Run(const std::string& scenario, const std::vector<std::string>& program) {
    Program lab(Command(scenario, program));
    const int status = lab.Wait();
    output_ = lab.output();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string output_;
};

TEST_F(LabTest, EndsAsTheProgram) {
  const auto shell = [this](const std::string& script) {
    return Run("dropped_host.json", {"/bin/sh", "-c", script});
  };
  EXPECT_EQ(shell("exit 7"), 7);
  EXPECT_EQ(shell("kill -9 $$"), 128 + SIGKILL);
  EXPECT_EQ(Run("dropped_host.json", {"/nowhere"}), 127);
  // The program's failure counts more than the lost report.
  for (const auto& [end, wanted] : {std::pair{"exit 7", 7}, {"exit 0", 1}}) {
    Program lab({BACKEND, "lab", std::string(kScenarios) + "dropped_host.json", "--report",
                 "/dev/full", "--", "/bin/sh", "-c", end});
    EXPECT_EQ(WEXITSTATUS(lab.Wait()), wanted);
    EXPECT_TRUE(Has(lab.output(), "can't write the report to /dev/full: ")) << lab.output();
  }
  // A process that stays would keep the pipe open, and Run would not return.
  EXPECT_EQ(shell("trap '' TERM HUP; sleep 1000 & exit 0"), 0);
}

TEST_F(LabTest, LeavesNothingWhenItIsKilled) {
  Program lab(
      Command("dropped_host.json", {"/bin/sh", "-c", "sleep 1000 & echo both && exec sleep 1000"}));
  lab.AwaitOutput("both\n");
  lab.Signal(SIGKILL);
  EXPECT_EQ(lab.Wait(), SIGKILL);  // Returns when nobody has the pipe any more.
}

TEST_F(LabTest, PoisonedNamesDontLeadToAForeignHost) {
  const std::string servers = std::string(kScenarios) + "httpdns_servers.data";
  EXPECT_EQ(
      Run("poisoned_names.json", {TARVEL, "run", "--token", "demo", "--lbs",
                                  "https://lbs1.example/lbs/conf.jsp", "--httpdns-cache", servers}),
      0);
  EXPECT_TRUE(Has(output_, " 0.000  name server      is poisoned")) << output_;
  EXPECT_TRUE(Has(output_, "name server      lbs1.example A: 203.0.113.66")) << output_;
  // The client has checked the host's certificate against the lab's trust store.
  EXPECT_TRUE(Has(output_, "lbs1.example     198.18.0.2 GET /lbs/conf.jsp")) << output_;
  EXPECT_TRUE(Has(output_, "tried      https://192.0.2.11/lbs/conf.jsp  200")) << output_;
}

TEST_F(LabTest, ClientSurvivesDroppedPacketsAndAChangedNetwork) {
  Program lab(
      Command("network_change.json",
              {TARVEL, "run", "--token", "demo", "--follow", "--every", "0.3", "--timeout", "1000",
               "--next-after", "200", "--no-httpdns", "--lbs", "https://lbs1.example/lbs/conf.jsp",
               "--backup", "https://lbs2.example/lbs/conf.jsp"}));
  const std::string good = "tried      https://lbs2.example/lbs/conf.jsp  200";
  lab.AwaitOutput("changes: the program has 198.18.0.3");
  lab.AwaitOutput(good);
  lab.AwaitOutput(good);  // The first one may have begun before the change.
  lab.Signal(SIGTERM);
  EXPECT_EQ(WEXITSTATUS(lab.Wait()), 128 + SIGTERM);
  const std::string report = lab.output().substr(lab.output().find("seconds  who"));
  EXPECT_TRUE(Has(report, "lbs1.example     drops packets")) << report;
  EXPECT_FALSE(Has(report, "lbs1.example     198.18.0.")) << report;
  EXPECT_TRUE(Has(report, "lbs2.example     198.18.0.3 GET /lbs/conf.jsp")) << report;
}

}  // namespace
