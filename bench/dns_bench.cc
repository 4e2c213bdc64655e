// The cost of HTTPDNS: a start with a long cache file, an answer, a stop that saves it, and a query
// that the cache resolves. A custom log function drops the log records.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "base/log/log.h"
#include "tarvel/http_agent/http_dns/httpdns_sdk.h"
#include "tests/support/temp_directory.h"

namespace tarvel_bench {
namespace {

using namespace test_support;
using namespace zo_tarvel;
using Clock = std::chrono::steady_clock;
constexpr char kFileEntry[] =
    R"({"cache_expired_time": 9000000000000, "ipv4": ["192.0.2.1"], "ipv6": ["[2001:db8::1]"]})";

std::atomic<std::int64_t> wall_clock_ms{1'700'000'000'000};

std::vector<std::string> HostNames(std::int64_t count) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) names.push_back(std::to_string(i).append(".service.example"));
  return names;
}

// A manager with the files of an earlier run, whose servers stay valid. Aborts without good hosts.
std::shared_ptr<_EnvironmentConfig> MakeConfig(std::int64_t hosts) {
  static const auto dropping = std::make_shared<zo_base::TarvelCustomLog>([](const char*) {});
  zo_base::SetCustomLogGetter([]() -> std::shared_ptr<zo_base::ITQlogWriter> { return dropping; });
  static const TempDirectory directory;
  _ZOTarvelEnvironmentSettings settings;
  directory.path().copy(settings.appdata_path, sizeof settings.appdata_path - 1);
  auto config = std::make_shared<_EnvironmentConfig>();
  config->Load(settings);
  config->SetHttpRequestInvoker([](const auto&, bool) { std::abort(); });
  const std::string files = config->appdata_path() + "http_dns/";
  std::filesystem::create_directories(files);
  WriteFile(files + "http_server_cache.data",
            R"({"host": "dns.example", "ipv4": "[]", "expired_time": "9223372036854775807"})");
  zo_base::json11::Json::object entries;
  for (const std::string& host : HostNames(hosts)) entries[host] = kFileEntry;
  WriteFile(files + "http_dns_cache.data", zo_base::json11::Json(entries).dump());
  return config;
}

std::shared_ptr<HttpDNSManager> StartManager(const std::shared_ptr<_EnvironmentConfig>& config) {
  auto manager = std::make_shared<HttpDNSManager>([] { return wall_clock_ms.load(); });
  manager->SetEnvironmentConfig(config);
  if (!manager->Init()) std::abort();
  return manager;
}

void RunOnCore(unsigned core) {
  cpu_set_t cores{};
  CPU_SET(core, &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

// Time until another thread, which may be asleep, has set the flag that `begin` passes on. This
// thread spins: a second wake-up would cost and vary more than the difference to be measured.
double MicrosecondsUntilSet(auto begin) {
  for (const auto end = Clock::now() + std::chrono::microseconds(50); Clock::now() < end;) {
  }
  std::atomic<bool> is_set{false};
  const auto start = Clock::now();
  begin(is_set);
  while (!is_set) {
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double Median(std::vector<double>& values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Time until a manager with this many hosts in its cache file is ready for queries.
void BM_Init(benchmark::State& state) {
  const auto config = MakeConfig(state.range(0));
  for (auto _ : state) {
    auto manager = StartManager(config);
    state.PauseTiming();
    manager->Stop();
    manager.reset();
    state.ResumeTiming();
  }
}

// Takes the place of the agent: gives managers with this configuration their answers of function D.
class Agent {
 public:
  explicit Agent(_EnvironmentConfig& config) {
    config.SetHttpRequestInvoker([this](const MultipleURLHttpRequest& request, bool) {
      request_ = request;
      is_asked_.release();
    });
  }

  // Asks the manager for a host that has expired. Returns the microseconds from the answer of
  // function D to the callback of the query.
  double Answer(HttpDNSManager& manager) {
    const std::string body =
        R"({"code": 200, "data": {"0.service.example": {"ip": ["192.0.2.1"], "ttl": 3600}}})";
    wall_clock_ms += 3'600'000;
    const auto callback = [this](const HostCacheResult&) { return *is_answered_ = true; };
    manager.InvokeQuery(zo_net::kAddressFamilyAny, HostNames(1), callback, {});
    is_asked_.acquire();
    if (!request_.check_callback(0, 200, "", "", body, 0).success) std::abort();
    return MicrosecondsUntilSet([&](auto& is_answered) {
      is_answered_ = &is_answered;
      request_.result_callback(false, true, "", body);
    });
  }

 private:
  MultipleURLHttpRequest request_;  // Written on the manager's thread before `is_asked_`.
  std::binary_semaphore is_asked_{0};
  std::atomic<bool>* is_answered_ = nullptr;  // Its target is set on the manager's thread.
};

// Time from an answer of function D to the callback of the query that waits for it. The mean
// includes those answers that have to wait for a save.
void BM_Answer(benchmark::State& state) {
  const auto config = MakeConfig(state.range(0));
  Agent agent(*config);
  const auto manager = StartManager(config);
  std::vector<double> answers;
  for (auto _ : state) {
    answers.push_back(agent.Answer(*manager));
    state.SetIterationTime(answers.back() / 1e6);
  }
  manager->Stop();
  state.counters["median_us"] = Median(answers);
}

// Time that a manager takes to stop while the host of an answer is not in the file yet: one save.
void BM_StopAfterAnswer(benchmark::State& state) {
  const auto config = MakeConfig(state.range(0));
  Agent agent(*config);
  for (auto _ : state) {
    const auto manager = StartManager(config);
    agent.Answer(*manager);
    const auto start = Clock::now();
    manager->Stop();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
}

void WithHosts(benchmark::internal::Benchmark* rows) {
  rows->ArgName("hosts")->Arg(1'000)->Arg(10'000)->Arg(20'000);
  rows->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Init)->Apply(WithHosts)->UseRealTime();
BENCHMARK(BM_Answer)->Apply(WithHosts)->UseManualTime();
BENCHMARK(BM_StopAfterAnswer)->Apply(WithHosts)->UseManualTime()->Iterations(20);

// `beyond_us`: the median of a query for good hosts among 1,000, minus that of an empty task for
// the same thread. The time column is one of each, with pauses. Pinned to two cores, and therefore
// last: on one core no memory moves between caller and thread, and queries look cheaper.
void BM_CachedQuery(benchmark::State& state) {
  const auto config = MakeConfig(1'000);
  const auto manager = StartManager(config);
  const auto hosts = HostNames(state.range(0));
  const auto hop = [&](auto& has_run) { manager->PostTask([&has_run] { has_run = true; }); };
  const auto query = [&](auto& answered) {
    const auto callback = [&answered](const HostCacheResult&) { return answered = true; };
    manager->InvokeQuery(zo_net::kAddressFamilyAny, hosts, callback, {});
  };
  RunOnCore(0);
  manager->PostTask([] { RunOnCore(1); });
  std::vector<double> hops, queries;
  for (auto _ : state) {
    hops.push_back(MicrosecondsUntilSet(hop));
    queries.push_back(MicrosecondsUntilSet(query));
  }
  manager->Stop();
  state.counters["hop_us"] = Median(hops);
  state.counters["beyond_us"] = Median(queries) - Median(hops);
}
BENCHMARK(BM_CachedQuery)->ArgName("hosts")->Arg(1)->Arg(8)->UseRealTime();

}  // namespace
}  // namespace tarvel_bench
