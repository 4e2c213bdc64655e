#include "network/curl/connection_pool.h"

#include <sys/epoll.h>

#include <cerrno>

#include "network/curl/close_on_exec.h"

namespace WQBASE::network {
namespace {

// Idle connections that are kept. A client talks to a handful of servers.
constexpr long kMostIdleConnections = 64;

std::uint32_t EventsOf(int what) {
  std::uint32_t events = 0;
  if ((what & CURL_POLL_IN) != 0) events |= EPOLLIN;
  if ((what & CURL_POLL_OUT) != 0) events |= EPOLLOUT;
  return events;
}

int ActionOf(std::uint32_t events) {
  int action = 0;
  if ((events & (EPOLLIN | EPOLLHUP)) != 0) action |= CURL_CSELECT_IN;
  if ((events & EPOLLOUT) != 0) action |= CURL_CSELECT_OUT;
  if ((events & EPOLLERR) != 0) action |= CURL_CSELECT_ERR;
  return action;
}

}  // namespace

ConnectionPool::ConnectionPool(int epoll, std::uint32_t id)
    : epoll_(epoll), id_(id), multi_(curl_multi_init()) {
  if (multi_ == nullptr) return;
  MarkWakeupPair(multi_);
  curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, kMostIdleConnections);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, OnSocketWanted);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, OnTimerWanted);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

ConnectionPool::~ConnectionPool() {
  if (multi_ != nullptr) curl_multi_cleanup(multi_);
}

bool ConnectionPool::Add(CURL* easy) {
  if (curl_multi_add_handle(multi_, easy) != CURLM_OK) return false;
  ++in_flight_;
  return true;
}

void ConnectionPool::Remove(CURL* easy) {
  if (curl_multi_remove_handle(multi_, easy) == CURLM_OK) --in_flight_;
}

void ConnectionPool::OnSocketEvents(int socket, std::uint32_t events) {
  Work(socket, ActionOf(events));
}

void ConnectionPool::RunDueTimer(Clock::time_point now) {
  if (!due_ || *due_ > now) return;
  due_.reset();  // libcurl sets it anew when it wants another.
  Work(CURL_SOCKET_TIMEOUT, 0);
}

void ConnectionPool::Work(curl_socket_t socket, int action) {
  int running = 0;
  curl_multi_socket_action(multi_, socket, action, &running);
}

void ConnectionPool::TakeFinished(const OnFinished& on_finished) {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    CURL* const easy = message->easy_handle;
    const CURLcode result = message->data.result;  // The removal frees the message.
    Remove(easy);
    on_finished(easy, result);
  }
}

int ConnectionPool::OnSocketWanted(CURL*, curl_socket_t socket, int what, void* pool,
                                   void* watched) {
  auto* const self = static_cast<ConnectionPool*>(pool);
  if (what == CURL_POLL_REMOVE) {
    self->Unwatch(socket);
    return 0;
  }
  if (watched == nullptr) {
    MarkWatchedSocket(socket);
    curl_multi_assign(self->multi_, socket, self);
  }
  return self->Watch(socket, what, watched != nullptr) ? 0 : -1;
}

bool ConnectionPool::Watch(curl_socket_t socket, int what, bool is_watched) {
  epoll_event event{};
  event.events = EventsOf(what);
  event.data.u64 = (std::uint64_t{id_} << 32) | static_cast<std::uint32_t>(socket);
  if (epoll_ctl(epoll_, is_watched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event) == 0) {
    return true;
  }
  // libcurl may have closed a watched socket and got the same number for the next one.
  const int other_way = is_watched ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
  return epoll_ctl(epoll_, other_way, socket, &event) == 0;
}

void ConnectionPool::Unwatch(curl_socket_t socket) const {
  epoll_event unused{};
  epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, &unused);
}

int ConnectionPool::OnTimerWanted(CURLM*, long timeout_ms, void* pool) {
  auto* const self = static_cast<ConnectionPool*>(pool);
  if (timeout_ms < 0) {
    self->due_.reset();
  } else {
    self->due_ = Clock::now() + std::chrono::milliseconds(timeout_ms);
  }
  return 0;
}

}  // namespace WQBASE::network
