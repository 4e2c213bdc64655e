#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glog/logging.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "base/log/log.h"
#include "base/log/log_file.h"
#include "base/process/open_file.h"

namespace tarvel_bench {
namespace {

// A message for a record of about 120 bytes, prefix included.
constexpr char kMessage[] = "[lbs] Get link address link-7.example.invalid:8080 use default:0 x";

// A directory that is removed at the end of the process.
const std::string& Directory() {
  static const struct Temporary {
    Temporary() {
      std::string name = std::filesystem::temp_directory_path() / "tarvel-bench-XXXXXX";
      path = mkdtemp(name.data());
    }
    ~Temporary() { std::filesystem::remove_all(path); }
    std::string path;
  } temporary;
  return temporary.path;
}

// The cost of a record from the statement to the mapped buffer, every 500th with the write to the
// file. Half of it is the locking of the pages, which BM_LockPages measures.
void BM_Tarvel(benchmark::State& state) {
  using Writer = zo_base::TQLogImpl<zo_base::TarvelObject>;
  static const auto manager = zo_base::GetAtExitManager<zo_base::TarvelObject>().first;
  static const auto opened =
      Writer::GetHeldInstance()->Open(Directory() + "/tarvel/tarvel_comp.log", 0, 0);
  if (opened != zo_base::kLogReady) state.SkipWithError("the log can't be opened");
  for (auto _ : state) ZO_LOG << kMessage;
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tarvel)->Threads(1)->Threads(4)->UseRealTime();

// Copies records like the mapped buffer, without the locking of its pages.
class CopyingWriter final : public zo_base::ITQlogWriter {
 public:
  std::string_view GetIdent() const override { return {}; }
  void Write(std::int32_t, const std::string& text) override {
    zo_base::MutexLock file(file_lock_);
    zo_base::MutexLock buffer(buffer_lock_);
    if (used_ + text.size() >= sizeof buffer_) used_ = 0;
    std::memcpy(buffer_ + used_, text.data(), text.size());
    used_ += text.size();
  }

 private:
  zo_base::_thread_recursive_mutex file_lock_, buffer_lock_;
  char buffer_[zo_base::LogFile::kDefaultBufferSize];
  std::size_t used_ = 0;
};

// The cost of a record without the locking of pages: finding the writer, prefix, mutexes, copy.
void BM_TarvelApartFromPages(benchmark::State& state) {
  static const auto writer = std::make_shared<CopyingWriter>();
  zo_base::SetCustomLogGetter([]() -> std::shared_ptr<zo_base::ITQlogWriter> { return writer; });
  for (auto _ : state) ZO_LOG << kMessage;
  zo_base::SetCustomLogGetter(nullptr);
}
BENCHMARK(BM_TarvelApartFromPages)->UseRealTime();

// The cost of a log statement without a writer.
void BM_TarvelWithoutAWriter(benchmark::State& state) {
  for (auto _ : state) {
    zo_base::QLogHelper record(zo_base::kLogApp, {}, nullptr);
    record.stream() << kMessage;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TarvelWithoutAWriter);

// The cost of locking and unlocking the buffer's pages, which each record does once.
void BM_LockPages(benchmark::State& state) {
  constexpr std::size_t kSize = zo_base::LogFile::kDefaultBufferSize;
  const int fd = open((Directory() + "/pages").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const std::string zeros(kSize, '\0');  // In one call, for one piece of the page cache.
  if (posix_fallocate(fd, 0, kSize) != 0 || !zo_base::WriteAt(fd, 0, zeros)) {
    state.SkipWithError("no room for the pages");
  }
  void* pages = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  for (auto _ : state) {
    if (syscall(SYS_mlock2, pages, kSize, MLOCK_ONFAULT) != 0 ||
        syscall(SYS_munlock, pages, kSize) != 0) {
      state.SkipWithError("the pages can't be locked");
    }
  }
  munmap(pages, kSize);
  close(fd);
}
BENCHMARK(BM_LockPages)->UseRealTime();

// The same record in spdlog's basic file sink, with its default pattern.
void BM_Spdlog(benchmark::State& state) {
  static const auto logger = spdlog::basic_logger_mt("bench", Directory() + "/spdlog.log");
  for (auto _ : state) logger->info(kMessage);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Spdlog)->Threads(1)->Threads(4)->UseRealTime();

// The same record in glog, with buffered output.
void BM_Glog(benchmark::State& state) {
  static const bool ready = [] {
    FLAGS_log_dir = Directory();
    FLAGS_logbufsecs = 30;
    FLAGS_logbuflevel = google::GLOG_INFO;
    google::InitGoogleLogging("tarvel_bench_log");
    return true;
  }();
  benchmark::DoNotOptimize(ready);
  for (auto _ : state) LOG(INFO) << kMessage;
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Glog)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace
}  // namespace tarvel_bench
