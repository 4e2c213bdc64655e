#include "base/file/cached_key_value_file.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/lock/spin_rw_lock.h"
#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

using test_support::ReadFile;
using test_support::WriteFile;

class CachedKeyValueFileTest : public ::testing::Test {
 protected:
  // A store of its own that has read the file.
  std::string GetFromFile(const std::string& key) {
    CachedKeyValueFile other;
    EXPECT_TRUE(other.Load(path_));
    return other.Get(key, "missing");
  }
  std::vector<std::string> FilesInDirectory() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  const test_support::TempDirectory directory_;
  const std::string path_ = directory_ / "a.data";
  CachedKeyValueFile store_{[](const std::string& key, const std::string& value) {
    return key != "junk" && value != "bad";
  }};
};

TEST_F(CachedKeyValueFileTest, ReadsBackWhatItWroteAndTheFilterKeeps) {
  store_.Load(path_);  // There is no file.
  store_.Set("b", "\"\\/\b\f\n\r\t\x01\x1f\x7f\xc3\xa4");
  store_.Set("a", "old");
  store_.Set("a", "");
  EXPECT_EQ(store_.Get("a", "else"), "");
  EXPECT_FALSE(std::filesystem::exists(path_));  // A set doesn't save.
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(ReadFile(path_), R"({"a":"","b":"\"\\/\b\f\n\r\t\u0001\u001f)"
                             "\x7f\xc3\xa4\"}");
  EXPECT_EQ(store_.FileSize(), ReadFile(path_).size());
  EXPECT_EQ(GetFromFile("b"), store_.Get("b"));
  store_.Clear(false);
  EXPECT_FALSE(store_.Has("a"));
  EXPECT_EQ(GetFromFile("a"), "");
  store_.Clear(true);
  EXPECT_EQ(ReadFile(path_), "{}");
  EXPECT_EQ(store_.FileSize(), 2u);
  store_.Set("a", "1");
  WriteFile(path_,
            R"( {"junk": "1", "b" : "2", "c": "\u00e4", "d": "bad", "b": "3", "b": "bad"} )");
  store_.Reload();
  EXPECT_FALSE(store_.Has("a"));
  EXPECT_TRUE(store_.Save());  // Without what was dropped: the last that the filter keeps.
  EXPECT_EQ(ReadFile(path_), "{\"b\":\"3\",\"c\":\"\xc3\xa4\"}");
  EXPECT_EQ(store_.FileSize(), ReadFile(path_).size());
}

TEST_F(CachedKeyValueFileTest, RejectsWhatIsNoFlatObjectOfStrings) {
  const std::string begin = R"({"a": "1", "b": )";
  const std::string deep(100'000, '[');
  for (const std::string& text :
       {std::string("x"), std::string("[\"a\"]"), begin + "1}", begin + "true}", begin + "null}",
        begin + "[]}", begin + "{}}", begin + "\"2\"", begin + "\"2\"} x", begin + "\"\xff\"}",
        std::string(100, '\0'), deep, begin + deep}) {
    store_.Load(path_);
    store_.Set("c", "before");
    WriteFile(path_, text);
    store_.Reload();
    for (const char* key : {"a", "b", "c"}) EXPECT_FALSE(store_.Has(key)) << text.substr(0, 100);
    store_.Set("a", "2");
    EXPECT_TRUE(store_.Save());
    EXPECT_EQ(GetFromFile("a"), "2");
  }
}

TEST_F(CachedKeyValueFileTest, TouchesNothingButARegularFile) {
  const std::string elsewhere = directory_ / "elsewhere";
  WriteFile(elsewhere, R"({"a": "1"})");
  std::filesystem::permissions(elsewhere, std::filesystem::perms(0666));
  std::filesystem::create_symlink(elsewhere, path_);
  EXPECT_EQ(GetFromFile("a"), "missing");
  store_.Load(path_);
  store_.Set("a", "2");
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(GetFromFile("a"), "2");  // In the place of the link.
  EXPECT_EQ(std::filesystem::symlink_status(path_).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(ReadFile(elsewhere), R"({"a": "1"})");

  std::filesystem::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(GetFromFile("a"), "missing");
}

TEST_F(CachedKeyValueFileTest, KeepsTheOldFileUntilTheNewIsWritten) {
  store_.Load(path_);
  store_.Set("a", "1");
  EXPECT_TRUE(store_.Save());
  // No UTF-8, and longer than it would read: a control character takes six bytes.
  for (const auto& [size, byte] : {std::pair(1UL, '\xff'), {store_.kLongestFile / 6, '\x01'}}) {
    store_.Set("a", std::string(size, byte));
    EXPECT_FALSE(store_.Save());
    EXPECT_EQ(GetFromFile("a"), "1");
  }
  // As on a full disk, for both less and more than what the stream buffers.
  std::signal(SIGXFSZ, SIG_IGN);
  for (const rlim_t size : {100, 1'000'000}) {
    store_.Set("a", std::string(size, 'x'));
    const rlimit limit{size / 2, RLIM_INFINITY};
    rlimit before{};
    ASSERT_EQ(prlimit(0, RLIMIT_FSIZE, &limit, &before), 0);
    EXPECT_FALSE(store_.Save());
    prlimit(0, RLIMIT_FSIZE, &before, nullptr);
    EXPECT_EQ(GetFromFile("a"), "1");
    EXPECT_THAT(FilesInDirectory(), testing::ElementsAre("a.data"));
  }
  EXPECT_TRUE(store_.Save());  // What has failed is tried again.
  EXPECT_EQ(GetFromFile("a"), std::string(1'000'000, 'x'));
}

TEST_F(CachedKeyValueFileTest, RemovesWhatKilledWritersLeftBehind) {
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
  const std::string ended = std::to_string(dead), living = std::to_string(getppid());
  const auto of = [](const std::string& writer) { return "a.data." + writer + "-1.tmp"; };
  std::vector<std::string> kept{"a.data.tmp", "a.data." + ended + "-1", "b" + of(ended).substr(1)};
  for (const std::string& writer : {living, "-" + ended, std::string("0"), std::string(20, '9')}) {
    kept.push_back(of(writer));
  }
  for (const std::string& name : kept) WriteFile(directory_ / name, "x");
  WriteFile(directory_ / of(ended), "x");
  WriteFile(directory_ / ("a.data." + ended + "-4294967295.tmp"), "x");
  store_.Load(path_);
  EXPECT_THAT(FilesInDirectory(), testing::UnorderedElementsAreArray(kept));
}

TEST_F(CachedKeyValueFileTest, SavesWhatTheLastOfManyThreadsSet) {
  store_.Load(path_);
  for (int round = 0; round < 30; ++round) {
    const std::string value = std::to_string(round);
    std::vector<std::jthread> threads;
    for (const char* key : {"0", "1", "2", "3"}) {
      threads.emplace_back([&, key] {
        store_.Set(key, value);
        EXPECT_TRUE(store_.Save());
        EXPECT_EQ(store_.Get(key), value);
      });
    }
    threads.clear();
    for (const char* key : {"0", "1", "2", "3"}) EXPECT_EQ(GetFromFile(key), value);
  }
  EXPECT_THAT(FilesInDirectory(), testing::ElementsAre("a.data"));
}

TEST(SpinRWLockTest, LetsInManyReadersOrOneWriter) {
  for (const auto mode : {SpinRWLock::kYield, SpinRWLock::kSleep}) {
    SpinRWLock lock(mode, 1);
    int first = 0, second = 0;  // Equal but for a writer at work.
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, writes = thread % 2 == 0] {
        for (int round = 0; round < 1'000; ++round) {
          if (writes) {
            const WriteLock hold(lock);
            ASSERT_EQ(++first, second + 1);
            std::this_thread::yield();
            ++second;
          } else {
            const ReadLock hold(lock);
            const int seen = first;
            std::this_thread::yield();
            ASSERT_TRUE(first == seen && second == seen);
          }
          std::this_thread::yield();  // The others come in.
        }
      });
    }
    threads.clear();
    const ReadLock hold(lock);
    std::jthread([&] { const ReadLock other(lock); });  // Readers come in together.
  }
}

}  // namespace
}  // namespace zo_base
