#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>

namespace WQBASE::network {

// A libcurl multi handle: transfers in flight, idle connections, and the addresses that names have
// been found to have. Its sockets are watched through an epoll set of the owner's.
//
// Threads: one. Ownership: the easy handles stay their owner's, who removes each before it goes.
class ConnectionPool {
 public:
  using Clock = std::chrono::steady_clock;
  using OnFinished = std::function<void(CURL*, CURLcode)>;

  // `id` comes back in the upper half of an event's data, the socket in the lower.
  ConnectionPool(int epoll, std::uint32_t id);
  ~ConnectionPool();
  ConnectionPool(const ConnectionPool&) = delete;
  ConnectionPool& operator=(const ConnectionPool&) = delete;

  bool usable() const { return multi_ != nullptr; }
  std::uint32_t id() const { return id_; }
  bool idle() const { return in_flight_ == 0; }

  bool Add(CURL* easy);
  void Remove(CURL* easy);

  // Lets libcurl work: on a socket with events, or when its timer is due.
  void OnSocketEvents(int socket, std::uint32_t events);
  void RunDueTimer(Clock::time_point now);
  std::optional<Clock::time_point> due() const { return due_; }

  // Removes the transfers that have ended and calls `on_finished` with each.
  void TakeFinished(const OnFinished& on_finished);

 private:
  // A socket to a server, from its opening to its closing.
  struct Socket {
    bool wanted = false;            // libcurl wants its events.
    std::uint32_t watched_for = 0;  // What the epoll set has it for; 0 when it isn't there.
  };

  static curl_socket_t OnSocketOpened(void* pool, curlsocktype purpose, curl_sockaddr* address);
  static int OnSocketClosed(void* pool, curl_socket_t socket);
  void WatchOwn(curl_socket_t socket, Socket& own, int what);
  static int OnSocketWanted(CURL* easy, curl_socket_t socket, int what, void* pool, void* watched);
  static int OnTimerWanted(CURLM* multi, long timeout_ms, void* pool);
  bool Watch(curl_socket_t socket, int what, bool is_watched);
  void Unwatch(curl_socket_t socket) const;
  void Work(curl_socket_t socket, int action);
  void CountInFlight(long count);

  const int epoll_;
  const std::uint32_t id_;
  long in_flight_ = 0;
  std::optional<Clock::time_point> due_;
  std::unordered_map<curl_socket_t, Socket> sockets_;
  CURLM* const multi_;  // Last: it works on the others until it is gone.
};

}  // namespace WQBASE::network
