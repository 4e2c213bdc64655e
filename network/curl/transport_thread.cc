#include "network/curl/transport_thread.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <utility>

#include "network/curl/curl_library.h"

namespace WQBASE::network {
namespace {

using zo_base::MutexLock;
using Clock = ConnectionPool::Clock;

constexpr std::uint64_t kWakeSource = 0;
constexpr int kEventsAtOnce = 64;

bool WatchForReading(int epoll, int descriptor, std::uint64_t source) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = source;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

TransportThread::TransportThread()
    : BaseThread("tarvel_transport"),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      watches_wake_(WatchForReading(epoll_.get(), wake_.get(), kWakeSource)),
      wake_up_(std::make_shared<std::function<void()>>([this] { WakeUp(); })) {
  ReplacePool();
}

TransportThread::~TransportThread() {
  StopAndJoin();
  DropAll();  // The thread may never have run.
}

bool TransportThread::usable() const { return watches_wake_ && !pools_.empty(); }

void TransportThread::WakeUp() const { eventfd_write(wake_.get(), 1); }

std::shared_ptr<std::function<void()>> TransportThread::CreateStopClosure() { return wake_up_; }

void TransportThread::Submit(std::unique_ptr<Transfer> transfer) {
  MutexLock lock(lock_);
  submitted_.push_back(std::move(transfer));
  if (!std::exchange(woken_, true)) WakeUp();
}

void TransportThread::RetireConnections() {
  MutexLock lock(lock_);
  retire_wanted_ = true;
  if (!std::exchange(woken_, true)) WakeUp();
}

void TransportThread::Run() {
  while (!stopping_requested()) {
    TakeOrders();
    RunDueTimers();
    FinishTransfers();
    CompleteEnded();
    DropDrainedPools();
    WaitForEvents();
  }
  DropAll();
}

void TransportThread::TakeOrders() {
  std::vector<std::unique_ptr<Transfer>> taken;
  bool retire = false;
  {
    MutexLock lock(lock_);
    taken.swap(submitted_);
    retire = std::exchange(retire_wanted_, false);
    woken_ = false;
  }
  if (retire) ReplacePool();
  for (auto& transfer : taken) StartHop(std::move(transfer));
}

// Keeps the old pool when the system gives no new one.
void TransportThread::ReplacePool() {
  auto pool = std::make_unique<ConnectionPool>(epoll_.get(), ++last_pool_id_);
  if (pool->usable()) pools_.push_back(std::move(pool));
}

void TransportThread::StartHop(std::unique_ptr<Transfer> transfer) {
  AssertOnThread();
  if (transfer->NeedsHop()) {
    CURL* const easy = transfer->BeginHop();
    ConnectionPool* const pool = pools_.back().get();
    if (easy != nullptr && pool->Add(easy)) {
      in_flight_[easy] = {std::move(transfer), pool};
      return;
    }
    transfer->Fail("The transfer could not be begun");
  }
  ended_.push_back(std::move(transfer));
}

// Runs after the work on the sockets. The first completion wakes the thread that it posts to, and
// the others find it awake, which saves system calls.
void TransportThread::CompleteEnded() {
  AssertOnThread();
  for (const auto& transfer : ended_) transfer->Complete();
  ended_.clear();
}

void TransportThread::RunDueTimers() {
  const auto now = Clock::now();
  for (const auto& pool : pools_) pool->RunDueTimer(now);
}

// Loops by index, since a finished hop may add a pool.
void TransportThread::FinishTransfers() {
  for (std::size_t i = 0; i < pools_.size(); ++i) {
    pools_[i]->TakeFinished([this](CURL* easy, CURLcode result) { OnHopFinished(easy, result); });
  }
}

void TransportThread::OnHopFinished(CURL* easy, CURLcode result) {
  auto [transfer, pool] = std::move(in_flight_.extract(easy).mapped());
  transfer->FinishHop(result);
  if (transfer->connection_went_silent() && pool == pools_.back().get()) ReplacePool();
  StartHop(std::move(transfer));
}

void TransportThread::DropDrainedPools() {
  const ConnectionPool* const newest = pools_.back().get();
  std::erase_if(pools_, [=](const auto& pool) { return pool.get() != newest && pool->idle(); });
}

int TransportThread::WaitTimeout() const {
  auto due = Clock::time_point::max();
  for (const auto& pool : pools_) due = std::min(due, pool->due().value_or(due));
  if (due == Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

void TransportThread::WaitForEvents() {
  AssertOnThread();
  std::array<epoll_event, kEventsAtOnce> events;
  const int count = epoll_wait(epoll_.get(), events.data(), kEventsAtOnce, WaitTimeout());
  for (int i = 0; i < count; ++i) Dispatch(events[i].data.u64, events[i].events);
}

void TransportThread::Dispatch(std::uint64_t source, std::uint32_t events) {
  if (source == kWakeSource) {
    eventfd_t unused = 0;
    eventfd_read(wake_.get(), &unused);
    return;
  }
  const auto pool = std::ranges::find(pools_, source >> 32, [](const auto& p) { return p->id(); });
  if (pool != pools_.end()) (*pool)->OnSocketEvents(static_cast<int>(source), events);
}

void TransportThread::DropAll() {
  for (const auto& [easy, entry] : in_flight_) entry.pool->Remove(easy);
  in_flight_.clear();
  pools_.clear();
}

}  // namespace WQBASE::network
