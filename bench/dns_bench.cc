// The cost of HTTPDNS: a query that the cache resolves, a start with a long cache file, and the
// save after an answer. A custom log function drops the log records.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
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
  auto manager = std::make_shared<HttpDNSManager>();
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
  state.SetComplexityN(state.range(0));
}

// The manager's save after an answer for one host. The CPU column excludes the wait for the disk.
void BM_Save(benchmark::State& state) {
  const TempDirectory directory;
  std::int64_t now = zo_base::WallClockMilliseconds();
  HttpDNSHostCache cache;
  for (const std::string& host : HostNames(state.range(0))) cache.Load(host, kFileEntry, now);
  zo_base::CachedKeyValueFile file;
  file.Load(directory / "http_dns_cache.data");
  for (const auto& [host, text] : cache.Dump()) file.Set(host, text);
  for (auto _ : state) {
    cache.SetEntry({HostNames(1)[0], {"192.0.2.1"}, {}, 3'600'000}, ++now, false);
    for (const auto& [host, text] : cache.Dump()) file.Set(host, text);
    if (!file.Save()) std::abort();
  }
  state.SetComplexityN(state.range(0));
}

void WithHosts(benchmark::internal::Benchmark* rows) {
  rows->ArgName("hosts")->Arg(1'000)->Arg(10'000)->Arg(20'000)->Complexity();
  rows->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(BM_Init)->Apply(WithHosts);
BENCHMARK(BM_Save)->Apply(WithHosts);

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
