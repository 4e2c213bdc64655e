#pragma once

#include <string>

// What a server of a library can't do with its own connections, done to their descriptors.
namespace tarvel_backend {

// The descriptor of this process's connection with a peer; -1 when there is none (any more).
int FindClientSocket(const std::string& peer_address, int peer_port);

// The peer sees a reset. The descriptor stays the owner's to close.
void ResetConnection(int fd);

// Whether the peer has closed its side.
bool HasPeerLeft(int fd);

// Has the kernel drop every packet that comes for a TCP socket of this process, as if the cable was
// cut: connections don't come about, and those that stand go silent. With false all is well again.
// Connections accepted later inherit what their listener does.
void SetSilence(bool silent);

}  // namespace tarvel_backend
