#pragma once

#include <string>

// What a server of a library can't do with its own connections, done to their descriptors.
namespace tarvel_backend {

// One end of a connection.
struct Endpoint {
  std::string address;
  int port = 0;

  bool operator==(const Endpoint&) const = default;
};

// The descriptor of this process's connection between the two; -1 when there is none (any more).
int FindConnection(const Endpoint& own, const Endpoint& peer);

// The peer sees a reset. The descriptor stays the owner's to close.
void ResetConnection(int fd);

// Whether the peer has closed its side.
bool HasPeerLeft(int fd);

// Ends all connections of this process, whatever they are waiting for.
void ShutDownConnections();

// Has the kernel drop every packet that comes for a TCP socket of this process: connections don't
// come about, and those that stand hear nothing more. With false all is well again. Connections
// accepted later inherit what their listener does.
void SetSilence(bool silent);

}  // namespace tarvel_backend
