#include "network/curl/connection_pool.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "network/curl/curl_library.h"

namespace WQBASE::network {
namespace {

// So many idle connections are kept. A client talks to a handful of servers.
constexpr long kMostIdleConnections = 64;

std::uint32_t EpollEventsFor(int what) {
  std::uint32_t events = 0;
  if ((what & CURL_POLL_IN) != 0) events |= EPOLLIN;
  if ((what & CURL_POLL_OUT) != 0) events |= EPOLLOUT;
  return events;
}

int CurlActionFor(std::uint32_t events) {
  int action = 0;
  if ((events & (EPOLLIN | EPOLLHUP)) != 0) action |= CURL_CSELECT_IN;
  if ((events & EPOLLOUT) != 0) action |= CURL_CSELECT_OUT;
  if ((events & EPOLLERR) != 0) action |= CURL_CSELECT_ERR;
  return action;
}

}  // namespace

ConnectionPool::ConnectionPool(int epoll, std::uint32_t id)
    : epoll_(epoll), id_(id), multi_(OpenMultiHandle()) {
  if (multi_ == nullptr) return;
  SetInFlight(0);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, OnSocketWanted);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, OnTimerWanted);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

ConnectionPool::~ConnectionPool() {
  if (multi_ != nullptr) curl_multi_cleanup(multi_);
}

bool ConnectionPool::Add(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, OnSocketOpened);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, OnSocketClosed);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
  if (curl_multi_add_handle(multi_, easy) != CURLM_OK) return false;
  SetInFlight(in_flight_ + 1);
  return true;
}

void ConnectionPool::Remove(CURL* easy) {
  if (curl_multi_remove_handle(multi_, easy) == CURLM_OK) SetInFlight(in_flight_ - 1);
}

// libcurl limits all connections together, and closes idle ones when there are more.
void ConnectionPool::SetInFlight(long count) {
  in_flight_ = count;
  curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, kMostIdleConnections + in_flight_);
}

void ConnectionPool::OnSocketEvents(int socket, std::uint32_t events) {
  const auto own = sockets_.find(socket);
  if (own != sockets_.end() && !own->second.wanted) {
    // Data or EOF on an idle connection; the next transfer on it will handle that.
    own->second.watched_for = 0;
    Unwatch(socket);
    return;
  }
  LetLibcurlAct(socket, CurlActionFor(events));
}

void ConnectionPool::RunDueTimer(Clock::time_point now) {
  if (!due_ || *due_ > now) return;
  due_.reset();  // libcurl may set it again.
  LetLibcurlAct(CURL_SOCKET_TIMEOUT, 0);
}

void ConnectionPool::LetLibcurlAct(curl_socket_t socket, int action) {
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

// Never returns a failure, which would make libcurl abandon the whole multi handle. A transfer
// whose socket can't be watched times out.
int ConnectionPool::OnSocketWanted(CURL*, curl_socket_t socket, int what, void* pool,
                                   void* watched) {
  auto* const self = static_cast<ConnectionPool*>(pool);
  const auto own = self->sockets_.find(socket);
  if (own != self->sockets_.end()) {
    self->WatchOwn(socket, own->second, what);
  } else if (what == CURL_POLL_REMOVE) {
    self->Unwatch(socket);
  } else {
    if (watched == nullptr) {
      fcntl(socket, F_SETFD, FD_CLOEXEC);  // libcurl opens the pair of a lookup without it.
      curl_multi_assign(self->multi_, socket, self);
    }
    self->Watch(socket, EpollEventsFor(what), watched != nullptr);
  }
  return 0;
}

// A connection stays in the set between two transfers, which saves two system calls for each.
void ConnectionPool::WatchOwn(curl_socket_t socket, Socket& own, int what) {
  own.wanted = what != CURL_POLL_REMOVE;
  const std::uint32_t events = EpollEventsFor(what);
  if (!own.wanted || own.watched_for == events) return;
  if (Watch(socket, events, own.watched_for != 0)) own.watched_for = events;
}

// Another thread of the client may fork and execute a program at any moment, so SOCK_CLOEXEC is set
// at the opening.
curl_socket_t ConnectionPool::OnSocketOpened(void* pool, curlsocktype, curl_sockaddr* address) {
  const curl_socket_t opened =
      socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (opened != CURL_SOCKET_BAD) static_cast<ConnectionPool*>(pool)->sockets_[opened] = {};
  return opened;
}

int ConnectionPool::OnSocketClosed(void* pool, curl_socket_t socket) {
  auto* const self = static_cast<ConnectionPool*>(pool);
  // If a forked child holds the socket open, close() doesn't remove it from the set.
  const auto own = self->sockets_.extract(socket);
  if (!own.empty() && own.mapped().watched_for != 0) self->Unwatch(socket);
  return close(socket);
}

bool ConnectionPool::Watch(curl_socket_t socket, std::uint32_t events, bool is_watched) const {
  epoll_event event{};
  event.events = events;
  event.data.u64 = (std::uint64_t{id_} << 32) | static_cast<std::uint32_t>(socket);
  return epoll_ctl(epoll_, is_watched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event) == 0;
}

void ConnectionPool::Unwatch(curl_socket_t socket) const {
  epoll_event unused{};
  epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, &unused);
}

int ConnectionPool::OnTimerWanted(CURLM*, long timeout_ms, void* pool) {
  auto& due = static_cast<ConnectionPool*>(pool)->due_;
  due.reset();
  if (timeout_ms >= 0) due = Clock::now() + std::chrono::milliseconds(timeout_ms);
  return 0;
}

}  // namespace WQBASE::network
