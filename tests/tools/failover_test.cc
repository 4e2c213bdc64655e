#include <gmock/gmock.h>

#include <functional>
#include <sstream>
#include <string>

#include "base/json/json11.h"
#include "tests/support/child_process.h"
#include "tests/support/lab.h"
#include "tests/support/private_network.h"

// A whole client gets a fresh answer while hosts and names fail. The client tells the times: the
// first update begins 1.2 s after the start, the next URL follows after 0.4 s, and a URL is given
// up after 1.5 s.
namespace test_support {
namespace {

using zo_base::json11::Json;

constexpr double kUpdateBegins = 1.2;
constexpr double kHeadStart = 0.4;
constexpr double kSlack = 8;  // Of a machine that is busy with other work.

struct Row {
  const char* what;
  std::function<void(Lab&)> fail;
  std::string good_url;  // The one that brings the answer.
  double waits;          // Seconds, at least.
};

// The body of a child.
int RunClient(const Row& row) {
  if (!EnterPrivateNetwork("nameserver 127.0.0.1\n")) return kNotPermitted;
  Lab lab(BACKEND);
  row.fail(lab);
  Program client({CLIENT, "run", "--json", "--token", "lab", "--take", "1",  //
                  "--lbs", Lab::UrlOf(Lab::kFirst), "--backup", Lab::UrlOf(Lab::kSecond),
                  "--timeout", "1500", "--next-after", "400", "--trust", lab.trust_store(),
                  "--httpdns-cache", lab.httpdns_servers()});
  EXPECT_EQ(client.Wait(), 0);
  Json answer;  // The first one.
  std::string good_url;
  std::istringstream lines(client.output());
  for (std::string line, error; std::getline(lines, line);) {
    const Json event = Json::parse(line, error);
    EXPECT_EQ(error, "") << line;
    const std::string& url = event["url"].string_value();
    if (event["code"].int_value() == 200 && !url.empty()) good_url = url.substr(0, url.find('?'));
    if (event["event"] == Json("answer") && answer.is_null()) answer = event;
  }
  EXPECT_EQ(good_url, row.good_url);
  EXPECT_EQ(answer["response"]["common"]["name"].string_value(), "lab");
  EXPECT_GE(answer["seconds"].number_value(), kUpdateBegins + row.waits);
  EXPECT_LE(answer["seconds"].number_value(), kUpdateBegins + row.waits + kSlack);
  return 0;
}

TEST(FailoverTest, ReachesAGoodHostWhateverFails) {
  const auto fault = [](const char* members) {
    return [members](Lab& lab) { lab.SetFault(Lab::kFirst, members); };
  };
  const auto poisoned = [](auto fail) {
    return [fail](Lab& lab) {
      lab.PoisonNames();
      (lab.*fail)(Lab::kFirst);
    };
  };
  const auto at = [](Lab::Host host) {
    return "https://" + Lab::AddressOf(host) + "/lbs/conf.jsp";
  };
  const std::string second = Lab::UrlOf(Lab::kSecond);
  const Row rows[] = {
      {"nothing fails", [](Lab&) {}, Lab::UrlOf(Lab::kFirst), 0},
      {"the first host is cut off", [](Lab& lab) { lab.CutOff(Lab::kFirst); }, second, kHeadStart},
      {"the first host is killed", [](Lab& lab) { lab.Kill(Lab::kFirst); }, second, 0},
      {"the first host hangs", fault(R"("hang": true)"), second, kHeadStart},
      {"the first host fails", fault(R"("status": 503)"), second, 0},
      {"the first host talks nonsense", fault(R"("malformed": true)"), second, 0},
      {"the first host is slow", fault(R"("delay_ms": 1200)"), second, kHeadStart},
      {"the name server is gone", [](Lab& lab) { lab.SilenceNameServer(); }, at(Lab::kFirst), 0},
      {"names are poisoned, and the first address has a wrong certificate",
       poisoned(&Lab::ShowWrongCertificate), at(Lab::kSecond), 0},
      {"names are poisoned, and the first host is cut off", poisoned(&Lab::CutOff),
       at(Lab::kSecond), kHeadStart},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_GOOD_CHILD([&] { return RunClient(row); });
  }
}

}  // namespace
}  // namespace test_support
