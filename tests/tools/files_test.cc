#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temp_directory.h"
#include "tools/backend/answers_file.h"
#include "tools/backend/lab/plan.h"

// The files of tarvel-backend, and what it says about mistakes in them.
namespace tarvel_backend {
namespace {

struct Mistake {
  std::string file;
  std::string message;  // Its end.
};

template <class Read>
void ExpectMessages(const std::vector<Mistake>& mistakes, const Read& read) {
  const test_support::TempDirectory directory;
  const std::string path = directory / "file.json";
  for (const auto& [file, message] : mistakes) {
    test_support::WriteFile(path, file);
    try {
      read(path);
      ADD_FAILURE() << "accepted: " << file;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), path + ": " + message) << file;
    }
  }
}

TEST(AnswersFileTest, NamesTheMistake) {
  ExpectMessages(
      {{"[]", "the file must be a JSON object"},
       {R"({"lbz": {}})", R"(no such member: lbz; the nearest is "lbs")"},
       {R"({"httpdns": {"host": {}}})", R"(no such member: httpdns.host; the nearest is "hosts")"},
       {R"({"httpdns": {"hosts": []}})", "httpdns.hosts must be a JSON object"},
       {R"({"faults": {"/lbs/conf": {}}})",
        R"(no such member: faults./lbs/conf; the nearest is "/lbs/conf.jsp")"},
       {R"({"faults": {"/lbs/conf.jsp": {"stauts": 503}}})",
        R"(no such member: faults./lbs/conf.jsp.stauts; the nearest is "status")"},
       {R"({"faults": {"/lbs/conf.jsp": {"delay_ms": "1"}}})",
        "faults./lbs/conf.jsp.delay_ms must be a number from 0 to 3600000"},
       {R"({"faults": {"/lbs/conf.jsp": {"status": 600}}})",
        "faults./lbs/conf.jsp.status must be a number from 200 to 599"},
       {R"({"faults": {"/lbs/conf.jsp": {"hang": 1}}})",
        "faults./lbs/conf.jsp.hang must be true or false"},
       {R"({"wrong_certificate": ["a", 1]})", "wrong_certificate[1] must be a string"},
       {R"({"httpdns": {"hosts": {"a": [0, {"ip": [], "ip": []}]}}})",
        "httpdns.hosts.a[1].ip is there twice"},
       {R"({"l\u0000": 1})", R"(no such member: l\x00; the nearest is "lbs")"},
       {std::string(1'000, '['), "nested too deeply"}},
      ReadAnswers);
}

// Returns a lab's file with one host, whose further members and whose timeline are given.
std::string LabFile(const std::string& members, const std::string& timeline = "") {
  return R"({"hosts": {"a.example": {"addresses": ["192.0.2.1"])" + members +
         R"(}}, "timeline": [)" + timeline + "]}";
}

constexpr char kAddressWanted[] =
    "an IP address outside of 198.18.0.0/16 and fd18::/16, no loopback, link-local or multicast "
    "one";

TEST(LabFileTest, NamesTheMistake) {
  const auto host_address = [](const std::string& address) {
    return Mistake{R"({"hosts": {"a": {"addresses": [")" + address + "\"]}}}",
                   std::string("hosts.a.addresses[0] must be ") + kAddressWanted};
  };
  ExpectMessages(
      {{"{}", "hosts is missing"},
       {R"({"hosts": {"a b": {}}})", "hosts.a b must be a host name"},
       {R"({"hosts": {"a": {"addresses": []}}})",
        "hosts.a.addresses must be a list of 1 to 8 addresses"},
       host_address("127.0.0.1"),
       host_address("198.18.3.3"),
       host_address("::ffff:192.0.2.1"),
       host_address("fe80::1"),
       host_address("192.0.2"),
       {R"({"hosts": {"a": {"addresses": ["192.0.2.1"]}, "b": {"addresses": ["192.0.2.1"]}}})",
        "hosts.b.addresses must be free: 192.0.2.1 is in use on port 80"},
       {R"({"hosts": {"a": {"addresses": ["192.0.2.53"]}}})",
        "hosts.a.addresses must be free: the name server has 192.0.2.53"},
       {LabFile(R"(, "names": ["A.example"])"),
        "hosts.a.example must be the only one with the name a.example"},
       {LabFile(R"(, "http": 0)"), "hosts.a.example.http must be a number from 1 to 65535"},
       {LabFile(R"(, "certificate": "left")"),
        R"(hosts.a.example.certificate must be "right", "untrusted" or "wrong name")"},
       {LabFile(R"(, "answers": {"lbz": 1})"),
        R"(no such member: hosts.a.example.answers.lbz; the nearest is "lbs")"},
       {LabFile("", R"({"host": "a.example"})"), "timeline[0].at is missing"},
       {LabFile("", R"({"at": -1, "all": "well"})"),
        "timeline[0].at must be a number from 0 to 86400"},
       {LabFile("", R"({"at": 1})"),
        R"(timeline[0] must be an event of one of "host", "name_server", "network" and "all")"},
       {LabFile("", R"({"at": 1, "host": "b", "fault": "well"})"),
        "timeline[0].host must be the name of one of the hosts"},
       {LabFile("", R"({"at": 1, "host": "a.example", "fault": {"status": 1}})"),
        "timeline[0].fault.status must be a number from 200 to 599"},
       {LabFile("", R"({"at": 1, "name_server": "slow"})"),
        R"(timeline[0].name_server must be "silent", "refuses", "poisoned" or "well")"},
       {LabFile("", R"({"at": 1, "network": "changes", "signal": "USR9"})"),
        R"(timeline[0].signal must be the name of a signal, such as "SIGUSR1")"},
       {LabFile("", R"({"at": 1, "network": "changes", "signal": "STOP"})"),
        "timeline[0].signal must be another signal than SIGSTOP and SIGCHLD"}},
      [](const std::string& path) { return ReadPlan(path); });
}

}  // namespace
}  // namespace tarvel_backend
