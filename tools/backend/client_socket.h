#pragma once

#include <string>

// Operations on the descriptors of connections, which cpp-httplib does not offer.
namespace tarvel_backend {

// An address without brackets, and a port.
struct Endpoint {
  std::string address;
  int port = 0;

  bool operator==(const Endpoint&) const = default;
};

// Returns the descriptor of this process's connection between the two; -1 when it is not open.
int FindConnection(const Endpoint& own, const Endpoint& peer);

// Sends a reset to the peer. The owner still closes the descriptor.
void ResetConnection(int fd);

// Returns whether the peer has closed its side.
bool HasPeerLeft(int fd);

// Returns this process's end of a socket. Throws std::runtime_error when it has none.
Endpoint OwnEnd(int fd);

// Shuts down all connections that this process has accepted on the listener.
void ShutDownConnections(const Endpoint& listener);

// With true, the kernel drops every packet for the listener of this process and its connections:
// new connections fail and open ones receive nothing. With false it delivers again. Accepted
// connections inherit the setting of their listener.
void SetSilence(const Endpoint& listener, bool silent);

}  // namespace tarvel_backend
