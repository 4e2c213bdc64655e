#include "base/file/cached_key_value_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/lock/spin_rw_lock.h"
#include "base/text/strings.h"
#include "tests/support/temp_directory.h"

namespace fs = std::filesystem;

namespace zo_base {
namespace {

using namespace test_support;

class CachedKeyValueFileTest : public ::testing::Test {
 protected:
  CachedKeyValueFileTest() { store_.Load(path_); }  // There is no file.

  auto CountFiles() const { return std::distance(fs::directory_iterator(directory_.path()), {}); }

  const TempDirectory directory_;
  const std::string path_ = directory_ / "a.data";
  CachedKeyValueFile store_{[](const std::string& key, const std::string& value) {
    return key != "junk" && value != "bad";
  }};
};

TEST_F(CachedKeyValueFileTest, ReadsBackWhatItWroteAndTheFilterKeeps) {
  const std::string special = "\"\\/\b\f\n\r\t\x01\x1f\x7f\xc3\xa4";
  store_.Set("b", special);
  store_.Set("a", "old");
  store_.Set("a", "");
  EXPECT_EQ(CountFiles(), 0);  // A set doesn't save.
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(ReadFile(path_), R"({"a":"","b":"\"\\/\b\f\n\r\t\u0001\u001f)"
                             "\x7f\xc3\xa4\"}");
  store_.Clear(false);
  EXPECT_EQ(store_.Get("a", "else"), "else");
  store_.Reload();
  EXPECT_EQ(store_.Get("a", "else"), "");
  EXPECT_EQ(store_.Get("b"), special);
  store_.Clear(true);
  EXPECT_EQ(ReadFile(path_), "{}");
  store_.Set("a", "1");
  WriteFile(path_,
            R"( {"junk": "1", "b" : "2", "c": "\u00e4", "d": "bad", "b": "3", "b": "bad"} )");
  store_.Reload();
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
    store_.Set("c", "before");
    WriteFile(path_, text);
    store_.Reload();
    EXPECT_EQ(store_.Size(), 0u) << text.substr(0, 100);
    store_.Set("a", "2");
    EXPECT_TRUE(store_.Save());
    EXPECT_EQ(ReadFile(path_), R"({"a":"2"})");
  }
}

TEST_F(CachedKeyValueFileTest, TouchesNothingButARegularFile) {
  const std::string elsewhere = directory_ / "elsewhere";
  WriteFile(elsewhere, R"({"a": "1"})");
  fs::permissions(elsewhere, fs::perms(0666));
  fs::create_symlink(elsewhere, path_);
  store_.Reload();
  EXPECT_FALSE(store_.Has("a"));
  store_.Set("a", "2");
  EXPECT_TRUE(store_.Save());
  EXPECT_EQ(ReadFile(path_), R"({"a":"2"})");  // In the place of the link.
  EXPECT_EQ(fs::symlink_status(path_).permissions(), fs::perms(0600));
  EXPECT_EQ(ReadFile(elsewhere), R"({"a": "1"})");
}

TEST_F(CachedKeyValueFileTest, KeepsTheOldFileUntilTheNewIsWritten) {
  const std::string old = R"({"a":"1"})";
  store_.Set("a", "1");
  EXPECT_TRUE(store_.Save());
  // No UTF-8, and longer than it would read: a control character takes six bytes.
  for (const auto& [size, byte] : {std::pair(1UL, '\xff'), {store_.kLongestFile / 6, '\x01'}}) {
    store_.Set("a", std::string(size, byte));
    EXPECT_FALSE(store_.Save());
    EXPECT_EQ(ReadFile(path_), old);
  }
  // As on a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  const std::string longer(1'000'000, 'x');
  store_.Set("a", longer);
  const rlimit limit{longer.size() / 2, RLIM_INFINITY};
  rlimit before{};
  ASSERT_EQ(prlimit(0, RLIMIT_FSIZE, &limit, &before), 0);
  EXPECT_FALSE(store_.Save());
  prlimit(0, RLIMIT_FSIZE, &before, nullptr);
  EXPECT_EQ(ReadFile(path_), old);
  EXPECT_EQ(CountFiles(), 1);
  EXPECT_TRUE(store_.Save());  // What has failed is tried again.
  EXPECT_EQ(ReadFile(path_), R"({"a":")" + longer + "\"}");
}

TEST_F(CachedKeyValueFileTest, RemovesWhatKilledWritersLeftBehind) {
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  ASSERT_EQ(waitpid(dead, nullptr, 0), dead);
  const std::string ended = std::to_string(dead), living = std::to_string(getppid());
  const std::pair<std::string, bool> files[] = {// And whether they are kept.
                                                {"a.data." + ended + "-1.tmp", false},
                                                {"a.data." + ended + "-4294967295.tmp", false},
                                                {"a.data." + living + "-1.tmp", true},
                                                {"a.data.-" + ended + "-1.tmp", true},
                                                {"a.data.0-1.tmp", true},
                                                {"a.data.99999999999999999999-1.tmp", true},
                                                {"a.data." + ended + "-1", true},
                                                {"b.data." + ended + "-1.tmp", true},
                                                {"a.data.tmp", true}};
  for (const auto& [name, kept] : files) WriteFile(directory_ / name, "x");
  store_.Load(path_);
  for (const auto& [name, kept] : files) EXPECT_EQ(fs::exists(directory_ / name), kept) << name;
}

TEST_F(CachedKeyValueFileTest, SavesWhatTheLastOfManyThreadsSet) {
  for (int round = 0; round < 30; ++round) {
    const std::string value = std::to_string(round);
    std::vector<std::jthread> threads;
    for (const char* key : {"A", "B", "C", "D"}) {
      threads.emplace_back([&, key] {
        store_.Set(key, value);
        EXPECT_TRUE(store_.Save());
        EXPECT_EQ(store_.Get(key), value);
      });
    }
    threads.clear();
    EXPECT_EQ(ReadFile(path_), ReplaceAll(R"({"A":"?","B":"?","C":"?","D":"?"})", "?", value));
  }
}

TEST(SpinRWLockTest, LetsInManyReadersOrOneWriter) {
  SpinRWLock lock;
  int first = 0, second = 0;  // Equal but for a writer at work.
  const auto work = [&](bool writes) {
    for (int round = 0; round < 5'000; ++round) {
      if (writes) {
        const WriteLock hold(lock);
        ++first;
        std::this_thread::yield();
        ++second;
      } else {
        const ReadLock hold(lock);
        std::this_thread::yield();
        ASSERT_EQ(first, second);
      }
      std::this_thread::yield();  // The others come in.
    }
  };
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) threads.emplace_back(work, thread % 2 == 0);
  }
  EXPECT_EQ(second, 10'000);
}

}  // namespace
}  // namespace zo_base
