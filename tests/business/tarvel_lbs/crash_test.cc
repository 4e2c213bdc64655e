#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "tests/support/lbs_client.h"
#include "tests/support/program.h"

// Kills a client's process while it stores answers. This program is also that client.
namespace zo_tarvel {
namespace {

using namespace test_support;

// Forces an update whenever it is told of an answer. Prints the name of each. Never returns.
int StoreAnswers(const char* directory, const char* url) {
  _ZOTarvelEnvironmentSettings environment;
  std::strcpy(environment.appdata_path, directory);
  _ZOTarvelLBSSettings settings;
  std::strcpy(settings.lbs_main_addr, url);
  settings.addr_family = kEMAddressFamilyIPv4;
  IZOTarvelLBSService* const service =
      GetTarvelObject(StartTarvelEnvironment(environment))->GetLBSService();
  service->SetLBSCallback(
      [](std::int32_t code, const char* response, void* user) {
        const std::string_view text = response;
        const auto* const number = &text[text.rfind("name") + 7];  // It ends in `"name":"1"}}`.
        if (code != 200 || dprintf(STDOUT_FILENO, " %d", std::atoi(number)) < 0) _exit(1);
        static_cast<IZOTarvelLBSService*>(user)->Update(kEMAddressFamilyAny, true);
      },
      service);
  service->Init(settings);
  dynamic_cast<zo_base::TaskThread*>(service)->PostTask(
      [service] { service->Update(kEMAddressFamilyAny, true); });
  while (true) pause();
}

// Runs StoreAnswers in a process, and kills it this time `after` its first answer. Returns the
// number of the last answer that it printed.
int KilledClient(const std::string& directory, const std::string& url,
                 std::chrono::microseconds after) {
  Program client({"/proc/self/exe", directory, url});
  client.AwaitOutput(" ");
  std::this_thread::sleep_for(after);
  client.Signal(SIGKILL);
  EXPECT_EQ(client.Wait(), SIGKILL);
  return std::stoi(client.output().substr(client.output().rfind(' ')));
}

TEST_F(LBSServiceTest, LeavesAWholeAnswerWheneverItIsKilled) {
  constexpr std::size_t kPadding = 100'000;  // Long answers take a while to store.
  const std::string padding = R"("zebdl":")" + std::string(kPadding, 'x') + R"(",)";
  // By value: the last killed client's request may still arrive after the test.
  const auto answered = std::make_shared<std::atomic<int>>(0);
  server_->Answer(kPath, [this, padding, answered](auto&&) {
    return ServerAnswer{200, {}, Answer(std::to_string(++*answered), padding)};
  });
  std::mt19937 random(1);
  for (int i = 0; i < 100; ++i) {
    const int told =
        KilledClient(directory_.path(), url_, std::chrono::microseconds(random() % 20'000));
    const std::filesystem::path directory = std::filesystem::path(CachePath()).parent_path();
    const std::string name = Cached("name");
    EXPECT_GE(std::stoi(name), told);
    EXPECT_EQ(Cached("lbs_rsp"), Answer(name, padding));
    EXPECT_EQ(Cached("zeb_dl").size(), kPadding);

    object()->ReleaseLBSService();
    Init();
    EXPECT_EQ(TextFrom(&IZOTarvelLBSService::GetName), name);
    EXPECT_EQ(NextLink(), "192.0.2.1 81 1");
    // Temporary files of killed clients don't accumulate.
    EXPECT_LE(std::distance(std::filesystem::directory_iterator(directory), {}), 2);
  }
}

}  // namespace
}  // namespace zo_tarvel

int main(int argc, char** argv) {
  if (argc == 3 && argv[1][0] == '/') return zo_tarvel::StoreAnswers(argv[1], argv[2]);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
