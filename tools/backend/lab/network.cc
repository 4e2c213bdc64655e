#include "tools/backend/lab/network.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "base/text/strings.h"
#include "tools/backend/lab/private_network.h"

namespace tarvel_backend {

namespace {

constexpr int kOwnNetwork = -1;
constexpr int kNotFound = 127;

// Executes `ip` in a child that a process with threads has forked: only system calls are safe.
[[noreturn]] void ExecuteIp(int commands, int network) {
  if (network != kOwnNetwork && setns(network, CLONE_NEWNET) != 0) _exit(1);
  dup2(commands, STDIN_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  for (const char* const path : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
    execl(path, "ip", "-batch", "-", nullptr);
  }
  _exit(kNotFound);
}

// `network` is a descriptor of the network. Throws std::runtime_error that begins with `failure`.
void RunIp(const std::vector<std::string>& commands, int network, const std::string& failure) {
  const std::string text = zo_base::Join(commands, "\n") + '\n';
  const int file = memfd_create("commands of ip", MFD_CLOEXEC);
  if (file < 0 || pwrite(file, text.data(), text.size(), 0) < 0) ThrowSystemError(failure);
  const pid_t child = fork();
  if (child == 0) ExecuteIp(file, network);
  close(file);
  int status = -1;
  while (child > 0 && waitpid(child, &status, 0) < 0) continue;
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) {
    throw std::runtime_error("the program ip is missing; install iproute2");
  }
  if (status != 0) throw std::runtime_error(failure + "; the message of ip says why");
}

std::string AddAddress(const Address& address, const char* device) {
  // Nobody else has the address, so there is no reason to wait until it is known to be unique.
  return "address add " + address.AsNetwork() + " dev " + device +
         (address.is_v4() ? "" : " nodad");
}

}  // namespace

Network::Network(pid_t process, int network, const std::vector<Address>& servers)
    : network_(network), has_v6_(std::any_of(servers.begin(), servers.end(), [](auto& server) {
        return !server.is_v4();
      })) {
  RunIp({"link add servers type veth peer name eth0 netns " + std::to_string(process)}, kOwnNetwork,
        "the kernel makes no pair of network devices (as root: modprobe veth)");
  std::vector<std::string> own{"link set servers up"};
  std::vector<std::string> programs{"link set lo up", "link set eth0 up"};
  for (const Address& server : servers) own.push_back(AddAddress(server, "servers"));
  own.push_back(std::string("route add ") + kProgramNetworkV4 + " dev servers");
  if (has_v6_) own.push_back(std::string("route add ") + kProgramNetworkV6 + " dev servers");
  for (const Address& address : Addresses(number_)) {
    programs.push_back(AddAddress(address, "eth0"));
    programs.emplace_back(address.is_v4() ? "route add 0.0.0.0/0 dev eth0"
                                          : "route add ::/0 dev eth0");
  }
  RunIp(own, kOwnNetwork, "the servers get no addresses");
  RunIp(programs, network_, "the program gets no address");
}

// The new address comes first: the kernel removes the routes of a device with its last address.
void Network::Change() {
  std::vector<std::string> commands;
  const int next = (number_ + 1) % kProgramAddresses;
  for (const Address& address : Addresses(next)) commands.push_back(AddAddress(address, "eth0"));
  for (const Address& address : Addresses(number_)) {
    commands.push_back("address delete " + address.AsNetwork() + " dev eth0");
  }
  RunIp(commands, network_, "the network does not change");
  number_ = next;
}

std::string Network::AddressesOfProgram() const {
  std::vector<std::string> texts;
  for (const Address& address : Addresses(number_)) texts.push_back(address.text());
  return zo_base::Join(texts, ", ");
}

std::vector<Address> Network::Addresses(int number) const {
  std::vector<Address> addresses{ProgramAddressV4(number)};
  if (has_v6_) addresses.push_back(ProgramAddressV6(number));
  return addresses;
}

}  // namespace tarvel_backend
