#include <gmock/gmock.h>

#include <functional>
#include <sstream>
#include <string>

#include "base/json/json11.h"
#include "tests/support/child_process.h"
#include "tests/support/lab.h"
#include "tests/support/private_network.h"

// A whole client on its way to a fresh answer, while hosts and names fail. Times are told by the
// client: the first update begins 1.2 s after the start, the next URL follows after 0.4 s, and a
// URL is given up after 1.5 s.
namespace test_support {
namespace {

using zo_base::json11::Json;

constexpr double kUpdateBegins = 1.2;
constexpr double kHeadStart = 0.4;
constexpr double kSlack = 8;  // Of a machine that has other things to do.

struct Story {
  int status = -1;
  Json answer;           // The first one; null when there is none.
  std::string good_url;  // The one that has brought the answer, without its query.
};

Story ToldByClient(const Lab& lab) {
  Program client({CLIENT, "run", "--json", "--token", "lab", "--take", "1",  //
                  "--lbs", Lab::UrlOf(Lab::kFirst), "--backup", Lab::UrlOf(Lab::kSecond),
                  "--timeout", "1500", "--next-after", "400", "--trust", lab.trust_store(),
                  "--httpdns-cache", lab.httpdns_servers()});
  Story story;
  story.status = client.Wait();
  std::istringstream lines(client.output());
  for (std::string line, error; std::getline(lines, line);) {
    const Json event = Json::parse(line, error);
    EXPECT_EQ(error, "") << line;
    const std::string& url = event["url"].string_value();
    if (event["code"].int_value() == 200 && !url.empty()) {
      story.good_url = url.substr(0, url.find('?'));  // The last one that is told of.
    }
    if (event["event"] == Json("answer") && story.answer.is_null()) story.answer = event;
  }
  return story;
}

struct Row {
  const char* what;
  std::function<void(Lab&)> fail;
  std::string good_url;
  double waits;  // Seconds, at least.
};

void ExpectFailover(const Row& row) {
  SCOPED_TRACE(row.what);
  EXPECT_GOOD_CHILD([&] {
    if (!NameServer::IsInstalled() || !EnterPrivateNetwork("nameserver 127.0.0.1\n")) {
      return kNotPermitted;
    }
    Lab lab(BACKEND);
    row.fail(lab);
    const auto [status, answer, good_url] = ToldByClient(lab);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(good_url, row.good_url);
    EXPECT_EQ(answer["response"]["common"]["name"].string_value(), "lab");
    EXPECT_GE(answer["seconds"].number_value(), kUpdateBegins + row.waits);
    EXPECT_LE(answer["seconds"].number_value(), kUpdateBegins + row.waits + kSlack);
    return 0;
  });
}

TEST(FailoverTest, PassesAnLBSHostThatFails) {
  const auto fault = [](const char* members) {
    return [members](Lab& lab) { lab.SetFault(Lab::kFirst, members); };
  };
  const std::string second = Lab::UrlOf(Lab::kSecond);
  const Row rows[] = {
      {"nothing fails", [](Lab&) {}, Lab::UrlOf(Lab::kFirst), 0},
      {"cut off", [](Lab& lab) { lab.CutOff(Lab::kFirst); }, second, kHeadStart},
      {"killed", [](Lab& lab) { lab.Kill(Lab::kFirst); }, second, 0},
      {"hangs", fault(R"("hang": true)"), second, kHeadStart},
      {"fails", fault(R"("status": 503)"), second, 0},
      {"talks nonsense", fault(R"("malformed": true)"), second, 0},
      {"is slow", fault(R"("delay_ms": 1200)"), second, kHeadStart},
  };
  for (const Row& row : rows) ExpectFailover(row);
}

TEST(FailoverTest, GoesToAddressesWhenNamesLeadNowhere) {
  const auto on = [](Lab::Host host) {
    return "https://" + Lab::AddressOf(host) + "/lbs/conf.jsp";
  };
  const Row rows[] = {
      {"the name server is gone", [](Lab& lab) { lab.SilenceNameServer(); }, on(Lab::kFirst), 0},
      {"names are poisoned, and the first address has a wrong certificate",
       [](Lab& lab) {
         lab.PoisonNames();
         lab.ShowWrongCertificate(Lab::kFirst);
       },
       on(Lab::kSecond), 0},
      {"names are poisoned, and the first host is cut off",
       [](Lab& lab) {
         lab.PoisonNames();
         lab.CutOff(Lab::kFirst);
       },
       on(Lab::kSecond), kHeadStart},
  };
  for (const Row& row : rows) ExpectFailover(row);
}

}  // namespace
}  // namespace test_support
