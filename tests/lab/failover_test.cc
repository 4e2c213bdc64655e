#include <gmock/gmock.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "base/json11.h"
#include "tests/support/child_process.h"
#include "tests/support/lab.h"
#include "tests/support/private_network.h"

// A whole client on its way to a fresh answer, while hosts and names fail. Times are told by the
// client: the first update begins 1.2 s after the start, the next URL follows after 0.4 s, and a
// URL is given up after 1.5 s.
namespace test_support {
namespace {

using testing::HasSubstr;
using zo_base::json11::Json;

constexpr double kUpdateBegins = 1.2;
constexpr double kHeadStart = 0.4;
constexpr double kSlack = 8;  // Of a machine that has other things to do.

// What a client tells, event by event.
class Story {
 public:
  explicit Story(const Lab& lab) {
    Program client({CLIENT, "run", "--json", "--token", "lab", "--take", "1",  //
                    "--lbs", Lab::UrlOf(Lab::kFirst), "--backup", Lab::UrlOf(Lab::kSecond),
                    "--timeout", "1500", "--next-after", "400", "--trust", lab.trust_store(),
                    "--httpdns-cache", lab.httpdns_servers()});
    status_ = client.Wait();
    std::istringstream lines(client.output());
    for (std::string line, error; std::getline(lines, line);) {
      events_.push_back(Json::parse(line, error));
      EXPECT_EQ(error, "") << line;
    }
  }

  int status() const { return status_; }
  // The first event of this kind; null when there is none.
  Json First(const std::string& kind) const {
    for (const Json& event : events_) {
      if (event["event"].string_value() == kind) return event;
    }
    return Json();
  }
  // The URL that has brought the answer, without its query: the last one that was told of.
  std::string GoodUrl() const {
    std::string good;
    for (const Json& event : events_) {
      const std::string& url = event["url"].string_value();
      if (event["code"].int_value() == 200 && !url.empty()) good = url.substr(0, url.find('?'));
    }
    return good;
  }

 private:
  int status_ = -1;
  std::vector<Json> events_;
};

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
    const Story story(lab);
    EXPECT_EQ(story.status(), 0);
    EXPECT_EQ(story.GoodUrl(), row.good_url);
    const Json answer = story.First("answer");
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
