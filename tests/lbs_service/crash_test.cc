#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/task_thread.h"
#include "tests/lbs_service/lbs_client.h"

// A client's process is killed while it stores answers. This program is that client, too.
namespace zo_tarvel {
namespace {

using namespace test_support;

// The name of an answer, which is its last text.
std::string NameOf(const std::string& response) {
  const std::size_t end = response.rfind('"');
  const std::size_t begin = response.rfind('"', end - 1) + 1;
  return response.substr(begin, end - begin);
}

// Asks anew, by force, whenever it is told of an answer, and prints the name of each. For ever.
int StoreAnswers(const char* directory, const char* url) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  _ZOTarvelEnvironmentSettings environment;
  std::strcpy(environment.appdata_path, directory);
  _ZOTarvelLBSSettings settings;
  std::strcpy(settings.lbs_main_addr, url);
  settings.addr_family = kEMAddressFamilyIPv4;
  IZOTarvelLBSService* const service =
      GetTarvelObject(StartTarvelEnvironment(environment))->GetLBSService();
  service->SetLBSCallback(
      [](std::int32_t code, const char* response, void* user) {
        const std::string line = NameOf(response) + "\n";
        if (code != 200 || write(STDOUT_FILENO, line.data(), line.size()) < 0) _exit(1);
        static_cast<IZOTarvelLBSService*>(user)->Update(kEMAddressFamilyAny, true);
      },
      service);
  service->Init(settings);
  dynamic_cast<zo_base::TaskThread*>(service)->PostTask(
      [service] { service->Update(kEMAddressFamilyAny, true); });
  while (true) pause();
}

// A process that runs StoreAnswers.
class StoringClient {
 public:
  StoringClient(std::string directory, std::string url) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    told_ = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string program = "/proc/self/exe";
    char* const arguments[] = {program.data(), directory.data(), url.data(), nullptr};
    if (posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ) != 0) {
      throw std::runtime_error("no process");
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
  }
  // Kills it `after` it has told of its first answer. Answers the number of the last one.
  int Kill(std::chrono::microseconds after) {
    std::string told = ReadTold();
    std::this_thread::sleep_for(after);
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    for (std::string more = told; !more.empty(); told += more) more = ReadTold();
    close(told_);
    const std::size_t line = told.rfind('\n', told.size() - 2) + 1;  // The first one: npos + 1.
    return std::stoi(told.substr(line));
  }

 private:
  std::string ReadTold() const {
    char bytes[4'096];
    return std::string(bytes, std::max<ssize_t>(read(told_, bytes, sizeof bytes), 0));
  }

  pid_t process_ = -1;
  int told_ = -1;
};

constexpr int kKills = 100;
constexpr std::size_t kPadding = 100'000;  // Long answers, which take a while to store.

std::ptrdiff_t FilesIn(const std::filesystem::path& directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

TEST_F(LBSServiceTest, LeavesAWholeAnswerNotOlderThanTheLastToldOneWheneverItIsKilled) {
  const std::string padding = R"("zebdl":")" + std::string(kPadding, 'x') + R"(",)";
  // By value: the last one killed may be asking still when this test is over.
  const auto answered = std::make_shared<std::atomic<int>>(0);
  server_->Answer(kPath, [this, padding, answered](auto&&) {
    return ServerAnswer{200, {}, Answer(std::to_string(++*answered), padding)};
  });
  std::mt19937 random(1);
  int kills_while_storing = 0;
  for (int i = 0; i < kKills; ++i) {
    StoringClient client(directory_.path(), url_);
    const int told = client.Kill(std::chrono::microseconds(random() % 20'000));
    const std::filesystem::path directory = std::filesystem::path(CachePath()).parent_path();
    kills_while_storing += FilesIn(directory) > 1;
    const std::string name = Cached("name");
    EXPECT_GE(std::stoi(name), told);
    EXPECT_EQ(Cached("lbs_rsp"), Answer(name, padding));
    EXPECT_EQ(Cached("zeb_dl").size(), kPadding);

    object()->ReleaseLBSService();
    Init();
    EXPECT_EQ(TextOf(&IZOTarvelLBSService::GetName), name);
    EXPECT_EQ(NextLink().host, "192.0.2.1");
    EXPECT_LE(FilesIn(directory), 2);  // What a killed one leaves behind doesn't add up.
  }
  RecordProperty("kills_while_storing", kills_while_storing);
}

}  // namespace
}  // namespace zo_tarvel

int main(int argc, char** argv) {
  if (argc == 3 && argv[1][0] == '/') return zo_tarvel::StoreAnswers(argv[1], argv[2]);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
