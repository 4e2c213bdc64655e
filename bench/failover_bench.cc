// How long a client waits for a good answer while hosts and names fail: with the library's agent,
// and with plain libcurl code. Two hosts have the answer; the host of the first URL fails. Prints a
// table of medians. All contenders give a URL up after 7 s. Each run begins without connections.
//
//   tarvel_bench_failover [RUNS]
//
// Runs in a private network, so it needs to be root or to be allowed user namespaces.
#include <tarvel/tarvel.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/curl_walk.h"
#include "bench/lab.h"
#include "network/http/trust_settings.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tests/support/private_network.h"

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using Urls = std::vector<std::string>;

constexpr int kTries = 3;  // Of one URL, where libcurl's user repeats.

// --- The library ---

// Knows the lab's HTTPDNS host, as a client does after an earlier run.
class Environment : public zo_tarvel::EnvironmentConfigGetterBase {
 public:
  explicit Environment(const Lab& lab) {
    zo_tarvel::_ZOTarvelEnvironmentSettings settings;
    std::strcpy(settings.appdata_path, directory_.path().c_str());
    const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
    config->Load(settings);
    const std::string files = config->appdata_path() + "http_dns/";
    std::filesystem::create_directories(files);
    std::filesystem::copy_file(lab.httpdns_servers(), files + "http_server_cache.data");
    WQBASE::network::TrustAuthoritiesOf(lab.trust_store());
    id_ = zo_tarvel::StartTarvelEnvironment(settings);
    SetEnvironmentConfig(zo_tarvel::GetConfig());
  }
  ~Environment() override { zo_tarvel::ExitTarvelEnvironment(id_); }

  bool Get(const Urls& urls) {
    std::promise<bool> done;
    zo_tarvel::MultipleURLHttpRequest request;
    for (const std::string& url : urls) request.urls.push_back({"", url});
    request.time_out = static_cast<std::int32_t>(kTimeOutMs);
    request.multiple_time_out = static_cast<std::int32_t>(kHeadStartMs);
    request.check_callback = [](std::int32_t, std::int32_t code, const std::string&,
                                const std::string&, const std::string& body, std::uint64_t) {
      zo_tarvel::MultipleURLHttpRequest::CheckCallbackResult verdict;
      verdict.success = IsGood(code, body);
      return verdict;
    };
    request.result_callback = [&done](bool, bool success, const std::string&, const std::string&) {
      done.set_value(success);
    };
    InvokeHttpRequest(request, true);
    return done.get_future().get();
  }

 private:
  const test_support::TempDirectory directory_;
  int id_ = 0;
};

// --- What is measured ---

struct Way {
  const char* name;
  std::function<bool(const Lab&, const Urls&, Seconds& taken)> get;
};

bool Timed(const std::function<bool()>& get, Seconds& taken) {
  const auto start = Clock::now();
  const bool good = get();
  taken = Clock::now() - start;
  return good;
}

const Way kWays[] = {
    {"tarvel",
     [](const Lab& lab, const Urls& urls, Seconds& taken) {
       Environment environment(lab);
       return Timed([&] { return environment.Get(urls); }, taken);
     }},
    {"libcurl down the list",
     [](const Lab&, const Urls& urls, Seconds& taken) {
       return Timed([&] { return GetDownTheList(urls, 1); }, taken);
     }},
    {"libcurl, 3 tries a URL",
     [](const Lab&, const Urls& urls, Seconds& taken) {
       return Timed([&] { return GetDownTheList(urls, kTries); }, taken);
     }},
    {"libcurl multi, 2 s head start",
     [](const Lab&, const Urls& urls, Seconds& taken) {
       return Timed([&] { return WalkWithMulti(urls, ""); }, taken);
     }},
    {"the same, DNS over HTTPS",
     [](const Lab& lab, const Urls& urls, Seconds& taken) {
       const auto server = lab.MakeDohServer();
       return Timed([&] { return WalkWithMulti(urls, Lab::kDohUrl); }, taken);
     }},
};

struct Fault {
  const char* name;
  std::function<void(Lab&)> cause;
};
const Fault kFaults[] = {
    {"none", [](Lab&) {}},
    {"host cut off, packets dropped", [](Lab& lab) { lab.CutOff(Lab::kFirst); }},
    {"host hangs", [](Lab& lab) { lab.SetFault(Lab::kFirst, R"("hang": true)"); }},
    {"host answers after 5 s", [](Lab& lab) { lab.SetFault(Lab::kFirst, R"("delay_ms": 5000)"); }},
    {"host killed", [](Lab& lab) { lab.Kill(Lab::kFirst); }},
    {"host answers 503", [](Lab& lab) { lab.SetFault(Lab::kFirst, R"("status": 503)"); }},
    {"DNS names poisoned", [](Lab& lab) { lab.PoisonNames(); }},
    {"name server gone", [](Lab& lab) { lab.SilenceNameServer(); }},
};

// The median in seconds; nullopt if a run had no good answer.
std::optional<double> Measure(const Fault& fault, const Way& way, int runs) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    Lab lab(BACKEND);
    fault.cause(lab);
    Seconds taken{};
    if (!way.get(lab, {Lab::UrlOf(Lab::kFirst), Lab::UrlOf(Lab::kSecond)}, taken)) return {};
    times.push_back(taken.count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

void PrintRow(const Fault& fault, int runs) {
  std::printf("| %s |", fault.name);
  std::optional<double> own;
  for (const Way& way : kWays) {
    const auto seconds = Measure(fault, way, runs);
    if (!seconds) {
      std::printf(" no answer |");
    } else if (own) {
      std::printf(" %.4f s (%.1f times) |", *seconds, *seconds / *own);
    } else {
      std::printf(" %.4f s |", *seconds);
    }
    if (&way == kWays) own = seconds;
    std::fflush(stdout);
  }
  std::printf("\n");
}

void Run(int runs) {
  std::printf("| Fault |");
  for (const Way& way : kWays) std::printf(" %s |", way.name);
  std::printf("\n|---|---|---|---|---|---|\n");
  for (const Fault& fault : kFaults) PrintRow(fault, runs);
}

}  // namespace
}  // namespace tarvel_bench

int main(int argc, char** argv) {
  if (!test_support::EnterPrivateNetwork("nameserver 127.0.0.1\n")) {
    std::fputs("needs to be permitted a private network\n", stderr);
    return 1;
  }
  constexpr int kDefaultRuns = 3;
  tarvel_bench::Run(argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultRuns);
  return 0;
}
