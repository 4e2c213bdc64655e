#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/temp_directory.h"

// What the command line client says about its arguments and its output.
namespace {

using test_support::Program;
using Arguments = std::vector<std::string>;

struct Ended {
  int status = 0;  // As a shell has it.
  std::string output;
};

Ended AwaitEnd(Program&& program) {
  const int status = program.Wait();
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), program.output()};
}

// Returns the arguments of a client that ends at once.
Arguments Client(const std::string& command, const Arguments& more) {
  Arguments all{TARVEL,    command,  "--lbs", "http://127.0.0.1:1/", "--token",
                "default", "--wait", "0",     "--no-httpdns"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

// Returns a command for a shell, in which $0 is the client.
Arguments Shell(const std::string& script) { return {"/bin/sh", "-c", script, TARVEL}; }

TEST(CommandLineTest, NamesTheWrongArgument) {
  const std::string times = "with 0 to 3600 seconds, not ";
  const std::string families = "expected SECONDS:any, SECONDS:4 or SECONDS:6 " + times;
  const struct {
    Arguments arguments;  // An option and its value.
    std::string message;
  } rows[] = {
      {{"--network-change", "0.2:banana"}, families + "0.2:banana"},
      {{"--network-change", "0.2:4extra"}, families + "0.2:4extra"},
      {{"--network-change", ":4"}, families + ":4"},
      {{"--network-change", "0.2abc:4"}, families + "0.2abc:4"},
      {{"--network-change", "3601:4"}, families + "3601:4"},
      {{"--token-change", "0.3"}, "expected SECONDS:KEY " + times + "0.3"},
      {{"--token-change", "0.3:"}, "the key is wrong: it is empty"},
      {{"--token", "a\x1b"}, "expected UTF-8 without control bytes, not a\\x1b"},
      {{"--lbs", "http://a b/"}, "expected an http or https URL, not http://a b/"},
      {{"--lbs", "http://a:65536/"}, "expected an http or https URL, not http://a:65536/"},
      {{"--link", "a b:80"}, "expected HOST:PORT, not a b:80"},
      {{"--link", "[::1%eth0]:80"}, "expected HOST:PORT, not [::1%eth0]:80"},
      {{"--link", "user@a:80"}, "expected HOST:PORT, not user@a:80"},
      {{"--link", "a:80/path"}, "expected HOST:PORT, not a:80/path"},
      {{"--default-link-ipv6", "1.2.3.4:80"}, "expected [IPV6]:PORT or NAME:PORT, not 1.2.3.4:80"},
      {{"--wait", "nan"}, "expected 0 to 3600 seconds, not nan"},
      {{"--data", ""}, "it is empty"},
      {{"--data", "a\x1b"}, "expected a path without control bytes, not a\\x1b"},
  };
  for (const auto& [arguments, message] : rows) {
    const Ended ended = AwaitEnd(Program(Client("run", arguments)));
    EXPECT_EQ(ended.status, 2) << message;
    EXPECT_EQ(ended.output.substr(0, ended.output.find('\n')), arguments[0] + ": " + message);
  }
}

TEST(CommandLineTest, NamesTheWrongArgumentOfInspect) {
  const test_support::TempDirectory directory;
  const struct {
    Arguments arguments;
    int status;
    std::string message;
  } rows[] = {
      {{"--last", "-1"}, 2, "--last: Value -1 not in range 0 to 1000000"},
      {{"--last", "99999999999999999999"},
       2,
       "--last: Value 99999999999999999999 not in range 0 to 1000000"},
      {{"--html", ""}, 2, "--html: it is empty"},
      {{"--since", "02-30 10:00"},
       2,
       "--since: expected 15m, 2h, 3d, or a time like \"11-24 16:09\", not 02-30 10:00"},
      {{"--since", "2999-01-01 10:00"},
       1,
       "tarvel: --since is in the future, so no request is shown"},
      {{"--log-dir", "a\x1b"}, 2, "--log-dir: Directory does not exist: a\\x1b"},
  };
  for (const auto& [arguments, status, message] : rows) {
    const Ended ended =
        AwaitEnd(Program({TARVEL, "inspect", directory.path(), arguments[0], arguments[1]}));
    EXPECT_EQ(ended.status, status) << message;
    EXPECT_EQ(ended.output.substr(0, ended.output.find('\n')), message);
  }
}

TEST(CommandLineTest, TellsThatOutputIsLost) {
  const std::string lost = "tarvel: can't write standard output: ";
  const std::string run = R"("$0" run --lbs http://127.0.0.1:1/ --token a --wait 0 --no-httpdns)";
  const struct {
    std::string script;
    Ended ended;
  } rows[] = {
      {R"("$0" --help >/dev/full)", {1, lost + "No space left on device\n"}},
      {run + " >/dev/full", {1, lost + "No space left on device\n"}},
      {run + " >&-", {1, lost + "Bad file descriptor\n"}},
  };
  for (const auto& [script, wanted] : rows) {
    const Ended ended = AwaitEnd(Program(Shell(script)));
    EXPECT_EQ(ended.status, wanted.status) << script;
    EXPECT_EQ(ended.output, wanted.output) << script;
  }
  // The loop ends when nobody has the other end of the pipe any more.
  EXPECT_EQ(AwaitEnd(Program(Shell("{ trap '' PIPE; while echo; do :; done 2>/dev/null; " + run +
                                   "; echo $? >&2; } | true")))
                .output,
            "141\n");
}

TEST(CommandLineTest, EndsAtASignalThoughNobodyReads) {
  const test_support::TempDirectory directory;
  const std::string path = directory / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  pollfd pipe{open(path.c_str(), O_RDWR | O_CLOEXEC), POLLOUT, 0};
  Program client({"/bin/sh", "-c",
                  R"(exec "$0" run --lbs http://127.0.0.1:1/ --token a --wait 0 --no-httpdns \
                     --json --take 1000 >"$1")",
                  TARVEL, path});
  while (poll(&pipe, 1, 0) == 1) std::this_thread::yield();  // Until it is full.
  client.Signal(SIGTERM);
  EXPECT_EQ(WEXITSTATUS(client.Wait()), 128 + SIGTERM);
  close(pipe.fd);
}

TEST(CommandLineTest, ReadsTheServersOfAPipe) {
  const std::string servers =
      R"({"host":"a.example","ipv4":"[{\"host\":\"127.0.0.1\",\"port\":1}]"})";
  const Ended ended = AwaitEnd(Program(Shell(
      "printf '%s' '" + servers + R"(' | "$0" resolve b.example --httpdns-cache /dev/stdin)")));
  EXPECT_EQ(ended.status, 4);
  EXPECT_NE(ended.output.find("//127.0.0.1:1/httpdns/v2/d: "), std::string::npos) << ended.output;
}

TEST(CommandLineTest, ExplainsBeforeTheExit) {
  const std::string output = AwaitEnd(Program(Client("run", {"--explain", "--json"}))).output;
  const auto last_line = output.rfind("\n{", output.size() - 2);
  const auto verdict = output.rfind("\n{", last_line - 1);
  EXPECT_EQ(output.substr(verdict + 1, 31), R"({"event": "verdict", "seconds":)") << output;
  EXPECT_EQ(output.substr(last_line + 1, 18), R"({"event": "exit", )") << output;
}

}  // namespace
