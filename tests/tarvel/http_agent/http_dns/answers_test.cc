#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tarvel/http_agent/http_dns/httpdns_messages.h"

// How answers of servers and entries of files are judged.
namespace zo_tarvel {
namespace {

using zo_net::kAddressFamilyAny, zo_net::kAddressFamilyIPv6;
using Texts = std::vector<std::string>;
using enum HttpDNSGrade;
constexpr std::int64_t kNow = 1'700'000'000'000;

TEST(HttpDNSAnswerTest, OfServersIsCheckedInOrder) {
  const std::string no_host =
      "Function S [host] in the response does not exist or the content is empty";
  const std::pair<std::string, std::string> rows[] = {
      {"", "Function S response is not in json format"},
      {"[]", "Function S response is not in json format"},
      {"{}", no_host},
      {R"({"host": "h\r\nX: 1", "ttl": 1, "ipv4": []})", no_host},
      {R"({"host": "h", "ttl": "600"})", "Function S [ttl] in the response does not exist"},
      {R"({"host": "h", "ttl": 1})", "Function S [ipv4/ipv6] in the response does not exist"},
      {R"({"host": "h", "ttl": 1e300, "ipv6": []})", ""}};
  for (const auto& [body, wanted] : rows) {
    std::string error;
    EXPECT_EQ(CheckSResponse(body, error).has_value(), wanted.empty()) << body;
    EXPECT_EQ(error, wanted) << body;
  }
}

TEST(HttpDNSAnswerTest, OfHostsIsCheckedInOrder) {
  const auto data = [](const std::string& a) {
    return R"({"code": 200, "data": {"b": {"ip": ["192.0.2.1"], "ttl": 1}, "a": )" + a + "}}";
  };
  const std::pair<std::string, std::string> rows[] = {
      {"", "Httpdns response error body is empty"},
      {"{", "Httpdns response body parse error"},
      {"[]", "Httpdns response body(json) is not an object"},
      {"{}", "Httpdns response code(business) does not exist"},
      {R"({"code": 1e300})", "Httpdns response code(business) error code:2147483647"},
      {R"({"code": 200})", "Httpdns response data(business) does not exist"},
      {R"({"code": 200, "data": []})", "b doman was not included in the response"},
      {data(R"({"ip": ["192.0.2.1/evil", "::1"], "ipv6": ["192.0.2.1"], "ttl": 1})"),
       "a both ipv4 and ipv6 are empty"},
      {data(R"({"ip": ["192.0.2.1"]})"), "a ttl was not included in the response"},
      {data(R"({"ip": ["192.0.2.1"], "ttl": -1e300})"), "a ttl <= 0 in the response"},
      {data(R"({"ipv6": ["[2001:db8::1]"], "ttl": 0.5})"), ""}};
  std::string error;
  for (const auto& [body, wanted] : rows) {
    EXPECT_EQ(CheckDResponse(200, body, {"b", "a"}, error).has_value(), wanted.empty()) << body;
    EXPECT_EQ(error, wanted) << body;
  }
  EXPECT_FALSE(CheckDResponse(404, "", {}, error));
  EXPECT_EQ(error, "Httpdns -d query hosts`s ip response code != 200");
}

TEST(HttpDNSAnswerTest, OfHostsGivesUsableRequestedOnesFirst) {
  const std::string usable = R"(": {"ip": ["192.0.2.1"], "ttl": 1}, ")", longest(255, 'm');
  std::string body = R"({"code": 200, "data": {")", error;
  for (const char* const host : {"b\\\\b", "c c", "", "\xff", "k\\u0000k"}) body += host + usable;
  for (const char* const ttl : {"0", "-5", "1e-9", "null", R"("1")"}) {
    body += std::to_string(body.size()) + R"(": {"ip": ["192.0.2.1"], "ttl": )" + ttl + R"(}, ")";
  }
  body += longest + usable + longest + 'm' + usable + "z" + usable + "a" + usable;
  body += R"(n": {"ip": ["evil.example"], "ttl": 1}}})";
  const auto updates = CheckDResponse(200, body, {"z"}, error);
  ASSERT_TRUE(updates);
  Texts hosts;
  for (const auto& update : *updates) hosts.push_back(update.host);
  EXPECT_THAT(hosts, testing::ElementsAre("z", "a", longest));
}

// Expects "a" to be good and then stale until these ages, and nothing else to be known.
void ExpectGrades(const HttpDNSHostCache& cache, std::int64_t good, std::int64_t stale) {
  for (const std::int64_t age :
       {std::int64_t{-1}, std::int64_t{0}, good - 1, good, stale - 1, stale}) {
    const HttpDNSGrade grade = age < 0 || age >= stale ? kExpired : age < good ? kGood : kStale;
    Texts found;
    EXPECT_EQ(cache.Check(kAddressFamilyIPv6, "a", kNow + age, found), kExpired);
    EXPECT_EQ(cache.Check(kAddressFamilyAny, "b", kNow + age, found), kExpired);
    EXPECT_EQ(cache.Check(kAddressFamilyAny, "a", kNow + age, found), grade) << age << " ms";
  }
}

TEST(HttpDNSHostCacheTest, GradesByAgeAndTrustsFilesForMinutes) {
  HttpDNSHostCache answered;
  answered.SetEntry({"a", {"192.0.2.1"}, {}, 100'000}, kNow, false);
  ExpectGrades(answered, 75'000, 90'000);
  const auto in = [](std::int64_t ms) { return std::to_string(kNow + ms); };
  const struct {
    std::string end;
    std::int64_t good, stale;
  } rows[] = {{in(3'600'000), 225'000, 270'000},
              {in(3'000), 2'250, 2'700},
              {in(2'999), 0, 2'700},
              {in(-86'400'000), 0, 2'700},
              {"1e300", 225'000, 270'000},
              {"9223372036854775807", 225'000, 270'000},
              {"\"x\"", 0, 2'700}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.end);
    HttpDNSHostCache cache;
    const std::string text = R"({"ttl": 1e300, "ipv4": ["192.0.2.1"], "cache_expired_time": )";
    EXPECT_TRUE(cache.Load("a", text + row.end + "}", kNow));
    ExpectGrades(cache, row.good, row.stale);
  }
}

TEST(HttpDNSHostCacheTest, KeepsNothingButAddresses) {
  const std::string mixed =
      R"(["192.0.2.1/evil", "evil.example", "192.0.2.1:80", "::1", "", 7, "127.1", "0x7f.0.0.1", "192.0.2.9",
      "u@192.0.2.1", "192.0.2.1 ", "[::1]/x", "[::1", "2001:db8::1%eth0", "::0x7f.1", "192.0.2.9"])";
  const std::string entry = R"({"ip": )" + mixed + R"(, "ipv6": )" + mixed + R"(, "ttl": )";
  std::string error;
  for (const char* ttl : {"1e300", "2147483648", "100"}) {
    HttpDNSHostCache cache;
    const std::string body = R"({"code": 200, "data": {"a": )" + entry + ttl + "}}}";
    cache.SetEntries(CheckDResponse(200, body, {}, error).value(), kNow);
    Texts found;
    EXPECT_EQ(cache.Check(kAddressFamilyAny, "a", kNow, found), kGood) << ttl;
    EXPECT_THAT(found, testing::ElementsAre("192.0.2.9", "[::1]")) << ttl;
  }
  HttpDNSHostCache cache;
  EXPECT_FALSE(cache.Load("a", R"({"ipv4": ["1.2.3.4/evil", "::1"], "ipv6": ["e.example"]})", 0));
  EXPECT_FALSE(cache.Load("a", "[", 0));
}

}  // namespace
}  // namespace zo_tarvel
