// The cost of the shared library for a client: until the first link address, for each further one,
// and at rest.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>
#include <thread>

#include "bench/process_cpu.h"
#include "tests/support/temp_directory.h"

extern char** environ;

namespace tarvel_bench {
namespace {

using zo_tarvel::EMAddressFamily;
using zo_tarvel::IZOTarvelLBSService;

// Nobody listens there.
constexpr char kUnreachable[] = "http://127.0.0.1:1/lbs/conf.jsp";

void Drop(const char*) {}

zo_tarvel::_ZOTarvelEnvironmentSettings Settings(const std::string& directory, bool log_file) {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  std::snprintf(settings.appdata_path, sizeof settings.appdata_path, "%s", directory.c_str());
  std::snprintf(settings.business_token, sizeof settings.business_token, "token");
  if (!log_file) settings.custom_log = Drop;
  return settings;
}

zo_tarvel::_ZOTarvelLBSSettings LBSSettings() {
  zo_tarvel::_ZOTarvelLBSSettings settings;
  settings.addr_family = zo_tarvel::kEMAddressFamilyIPv4;
  std::snprintf(settings.lbs_main_addr, sizeof settings.lbs_main_addr, "%s", kUnreachable);
  for (int i = 0; i < 5; ++i) {
    std::snprintf(settings.link_list[i], sizeof settings.link_list[i], "192.0.2.%d:8080", i);
  }
  return settings;
}

IZOTarvelLBSService* StartService(const zo_tarvel::_ZOTarvelEnvironmentSettings& settings) {
  const int id = zo_tarvel::StartTarvelEnvironment(settings);
  IZOTarvelLBSService* const service = zo_tarvel::GetTarvelObject(id)->GetLBSService();
  service->Init(LBSSettings());
  return service;
}

std::int32_t NextPort(IZOTarvelLBSService& service) {
  std::array<char, zo_tarvel::kLinkAddressBufferSize> host{};
  std::int32_t port = 0;
  EMAddressFamily family = zo_tarvel::kEMAddressFamilyIPv4;
  service.GetLinkAddress(host.data(), &port, &family);
  return port;
}

// The result of a row, the sum over its iterations.
struct Cost {
  double seconds = 0;
  double cpu_us = 0;  // Of all threads.
  bool good = true;   // There always was a link address.
};

using Measure = Cost (*)(const zo_tarvel::_ZOTarvelEnvironmentSettings&, std::int64_t iterations);

// Each repetition of a row runs in a child process: a custom log function stays for the rest of a
// process, and later rows would have no log file. The parent never calls the library, so that its
// children may. The argument says whether the log goes to a file.
void InOwnProcess(benchmark::State& state, Measure measure) {
  const test_support::TempDirectory directory;
  const auto settings = Settings(directory.path(), state.range(0) != 0);
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    const Cost cost = measure(settings, static_cast<std::int64_t>(state.max_iterations));
    const bool written = write(ends[1], &cost, sizeof cost) == sizeof cost;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  Cost cost;
  if (read(ends[0], &cost, sizeof cost) != sizeof cost) cost.good = false;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  const auto iterations = static_cast<double>(state.max_iterations);
  for (auto _ : state) state.SetIterationTime(cost.seconds / iterations);
  state.counters["cpu_us"] = cost.cpu_us / iterations;
  if (!cost.good) state.SkipWithError("no link address");
}

// Adds the time and CPU time of its life to `cost`.
class Stopwatch {
 public:
  explicit Stopwatch(Cost& cost) : cost_(cost) {}
  ~Stopwatch() {
    cost_.cpu_us += ProcessCpuMicroseconds() - cpu_before_;
    cost_.seconds += std::chrono::duration<double>(Clock::now() - begin_).count();
  }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  Cost& cost_;
  const double cpu_before_ = ProcessCpuMicroseconds();
  const Clock::time_point begin_ = Clock::now();
};

// From the start to the first link address, with the cache of an earlier run and no reachable
// server.
Cost WarmStart(const zo_tarvel::_ZOTarvelEnvironmentSettings& settings, std::int64_t iterations) {
  StartService(settings);  // Leaves the cache.
  zo_tarvel::ExitTarvelEnvironment(1);
  Cost cost;
  for (std::int64_t i = 0; i < iterations; ++i) {
    {
      const Stopwatch watch(cost);
      IZOTarvelLBSService* const service = StartService(settings);
      cost.good = NextPort(*service) == 8080 && cost.good;
    }
    zo_tarvel::ExitTarvelEnvironment(1);
  }
  return cost;
}

// One link address, with the records that it logs.
Cost GetLinkAddress(const zo_tarvel::_ZOTarvelEnvironmentSettings& settings,
                    std::int64_t iterations) {
  IZOTarvelLBSService* const service = StartService(settings);
  Cost cost;
  {
    const Stopwatch watch(cost);
    for (std::int64_t i = 0; i < iterations; ++i) {
      cost.good = NextPort(*service) == 8080 && cost.good;
    }
  }
  zo_tarvel::ExitTarvelEnvironment(1);
  return cost;
}

void BM_WarmStart(benchmark::State& state) { InOwnProcess(state, WarmStart); }
BENCHMARK(BM_WarmStart)
    ->ArgName("log_file")
    ->Arg(1)
    ->Arg(0)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

void BM_GetLinkAddress(benchmark::State& state) { InOwnProcess(state, GetLinkAddress); }
BENCHMARK(BM_GetLinkAddress)->ArgName("log_file")->Arg(1)->Arg(0)->UseManualTime();

// --- The idle process ---

// Measures idle child processes of this program.
constexpr char kEmptyProcess[] = "--empty";
constexpr char kLibraryProcess[] = "--library";
constexpr std::chrono::seconds kSettling{3};  // The first update has failed by then.

// Gives HTTPDNS servers that stay valid for a day, as on most starts. Otherwise it would ask for
// them all the time here, where none can be reached.
void MakeServersKnown(const std::string& directory) {
  using std::filesystem::recursive_directory_iterator;
  for (const auto& entry : recursive_directory_iterator(directory)) {
    if (entry.path().filename() != "http_server_cache.data") continue;
    const std::string text = test_support::ReadFile(entry.path());
    const auto tomorrow = std::chrono::system_clock::now() + std::chrono::days(1);
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(tomorrow.time_since_epoch());
    test_support::WriteFile(
        entry.path(),
        std::regex_replace(text, std::regex(R"("expired_time":"\d+")"),
                           "\"expired_time\":\"" + std::to_string(ms.count()) + "\""));
  }
}
constexpr std::chrono::seconds kWatch{10};

int SitStill(const char* mode, const char* directory) {
  if (std::strcmp(mode, kLibraryProcess) == 0) StartService(Settings(directory, true));
  while (true) pause();
}

class IdleProcess {
 public:
  IdleProcess(const char* mode, const std::string& directory) {
    std::string program = std::filesystem::read_symlink("/proc/self/exe");
    std::string arguments[] = {program, mode, directory};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    if (posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv, environ) != 0) std::abort();
  }
  ~IdleProcess() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  IdleProcess(const IdleProcess&) = delete;
  IdleProcess& operator=(const IdleProcess&) = delete;

  // KiB of this process's own pages plus its share of shared pages.
  double MemoryKiB() const { return FieldOf(Path() / "smaps_rollup", "Pss:"); }

  double WakeUps() const {
    double sum = 0;
    for (const auto& task : std::filesystem::directory_iterator(Path() / "task")) {
      sum += FieldOf(task.path() / "status", "voluntary_ctxt_switches:");
    }
    return sum;
  }

 private:
  std::filesystem::path Path() const { return "/proc/" + std::to_string(pid_); }

  static double FieldOf(const std::filesystem::path& file, std::string_view field) {
    std::ifstream lines(file);
    std::string name;
    for (std::string rest; lines >> name; std::getline(lines, rest)) {
      double value = 0;
      if (name == field && lines >> value) return value;
    }
    return 0;
  }

  pid_t pid_ = 0;
};

// The library at rest, minus a process of the same program that has never called it.
void BM_Idle(benchmark::State& state) {
  const test_support::TempDirectory directory;
  {
    const IdleProcess first(kLibraryProcess, directory.path());
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  MakeServersKnown(directory.path());
  for (auto _ : state) {
    const IdleProcess empty(kEmptyProcess, directory.path());
    const IdleProcess library(kLibraryProcess, directory.path());
    std::this_thread::sleep_for(kSettling);
    const double wake_ups_before = library.WakeUps();
    std::this_thread::sleep_for(kWatch);
    state.counters["wake_ups_per_s"] =
        (library.WakeUps() - wake_ups_before) / static_cast<double>(kWatch.count());
    state.counters["added_kib"] = library.MemoryKiB() - empty.MemoryKiB();
    state.counters["empty_kib"] = empty.MemoryKiB();
  }
}
BENCHMARK(BM_Idle)->Iterations(1);

}  // namespace
}  // namespace tarvel_bench

int main(int argc, char** argv) {
  if (argc == 3 && (std::strcmp(argv[1], tarvel_bench::kEmptyProcess) == 0 ||
                    std::strcmp(argv[1], tarvel_bench::kLibraryProcess) == 0)) {
    return tarvel_bench::SitStill(argv[1], argv[2]);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
