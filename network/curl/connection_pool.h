#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>

namespace WQBASE::network {

// A libcurl multi handle: the transfers in flight, the idle connections and the cached addresses of
// hosts. The owner watches its sockets through an epoll set.
//
// Threads: the transport's only. Ownership: owns the multi handle and the sockets. The caller owns
// the easy handles and removes each before it cleans it up.
class ConnectionPool {
 public:
  using Clock = std::chrono::steady_clock;
  using OnFinished = std::function<void(CURL*, CURLcode)>;

  // The data of an event has `id` in its upper half and the socket in its lower one.
  ConnectionPool(int epoll, std::uint32_t id);
  ~ConnectionPool();
  ConnectionPool(const ConnectionPool&) = delete;
  ConnectionPool& operator=(const ConnectionPool&) = delete;

  bool usable() const { return multi_ != nullptr; }
  std::uint32_t id() const { return id_; }
  bool idle() const { return in_flight_ == 0; }

  [[nodiscard]] bool Add(CURL* easy);
  void Remove(CURL* easy);

  // These let libcurl do its work: on a socket with events, and when its timer is due.
  void OnSocketEvents(int socket, std::uint32_t events);
  void RunDueTimer(Clock::time_point now);
  std::optional<Clock::time_point> due() const { return due_; }

  // Removes the finished transfers and calls `on_finished` with each.
  void TakeFinished(const OnFinished& on_finished);

 private:
  // An open socket to a server.
  struct Socket {
    bool wanted = false;            // libcurl wants its events.
    std::uint32_t watched_for = 0;  // The events in the epoll set; 0 when the socket isn't in it.
  };

  static curl_socket_t OnSocketOpened(void* pool, curlsocktype purpose, curl_sockaddr* address);
  static int OnSocketClosed(void* pool, curl_socket_t socket);
  static int OnSocketWanted(CURL* easy, curl_socket_t socket, int what, void* pool, void* watched);
  static int OnTimerWanted(CURLM* multi, long timeout_ms, void* pool);
  void WatchOwn(curl_socket_t socket, Socket& own, int what);
  bool Watch(curl_socket_t socket, std::uint32_t events, bool is_watched) const;
  void Unwatch(curl_socket_t socket) const;
  void LetLibcurlAct(curl_socket_t socket, int action);
  void SetInFlight(long count);

  const int epoll_;
  const std::uint32_t id_;
  long in_flight_ = 0;
  std::optional<Clock::time_point> due_;
  std::unordered_map<curl_socket_t, Socket> sockets_;
  CURLM* const multi_;  // Last: libcurl uses the other members until its cleanup.
};

}  // namespace WQBASE::network
