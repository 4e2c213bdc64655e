// What a client pays for the library as it embeds it, through the shared library: until it has its
// first link address, for each further one, and while nothing happens.
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

// From nothing to the first link address, with what an earlier run has cached and no server to be
// reached. The argument says whether the log goes to a file.
void BM_WarmStart(benchmark::State& state) {
  const test_support::TempDirectory directory;
  const auto settings = Settings(directory.path(), state.range(0) != 0);
  StartService(settings);  // Leaves the cache.
  zo_tarvel::ExitTarvelEnvironment(1);
  bool good = true;
  double cpu = 0;
  for (auto _ : state) {
    const double cpu_before = ProcessCpuMicroseconds();
    IZOTarvelLBSService* const service = StartService(settings);
    good = good && NextPort(*service) == 8080;
    cpu += ProcessCpuMicroseconds() - cpu_before;
    state.PauseTiming();
    zo_tarvel::ExitTarvelEnvironment(1);
    state.ResumeTiming();
  }
  if (!good) state.SkipWithError("no link address");
  state.counters["cpu_us"] = benchmark::Counter(cpu, benchmark::Counter::kAvgIterations);
}

// One link address, with the four records that it logs.
void BM_GetLinkAddress(benchmark::State& state) {
  const test_support::TempDirectory directory;
  IZOTarvelLBSService* const service =
      StartService(Settings(directory.path(), state.range(0) != 0));
  bool good = true;
  for (auto _ : state) good = NextPort(*service) == 8080 && good;
  zo_tarvel::ExitTarvelEnvironment(1);
  if (!good) state.SkipWithError("no link address");
}

// A client's log function stays for the rest of the process: so the log file comes first.
BENCHMARK(BM_WarmStart)->ArgName("log_file")->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetLinkAddress)->ArgName("log_file")->Arg(1);
BENCHMARK(BM_WarmStart)->ArgName("log_file")->Arg(0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetLinkAddress)->ArgName("log_file")->Arg(0);

// --- The idle process ---

// Processes of this program's own that sit still, and what the system says of them.
constexpr char kEmptyProcess[] = "--empty";
constexpr char kLibraryProcess[] = "--library";
constexpr std::chrono::seconds kSettling{3};  // The first update has failed by then.

// Has HTTPDNS know its servers for a day, as it does on most starts: otherwise it would be asking
// for them all the time here, where none can be reached.
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

  // KiB that this process has for itself, and its share of what others have mapped as well.
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

// The whole library at rest, over a process of the same program that has never called it.
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
