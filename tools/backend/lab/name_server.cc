#include "tools/backend/lab/name_server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "base/text/strings.h"
#include "tools/backend/ended_request.h"
#include "tools/backend/lab/dns_message.h"
#include "tools/backend/lab/private_network.h"

namespace tarvel_backend {

namespace {

constexpr char kWho[] = "name server";
constexpr int kPort = 53;
constexpr std::size_t kLongestPacket = 4'096;

std::string TypeName(int type) {
  if (type == kTypeA) return "A";
  if (type == kTypeAAAA) return "AAAA";
  return "type " + std::to_string(type);
}

std::string AddressesOfType(const std::vector<Address>& addresses, int type) {
  std::vector<std::string> texts;
  for (const Address& address : addresses) {
    if (type == (address.is_v4() ? kTypeA : kTypeAAAA)) texts.push_back(address.text());
  }
  return texts.empty() ? "no address" : zo_base::Join(texts, ", ");
}

}  // namespace

NameServer::NameServer(const Address& address, AddressesOfNames names, AddressesOfNames poisoned,
                       Report& report)
    : names_(std::move(names)),
      poisoned_(std::move(poisoned)),
      report_(report),
      socket_(socket(address.is_v4() ? AF_INET : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  BindTo(socket_, address, kPort);
  thread_ = std::thread([this] { Serve(); });
}

NameServer::~NameServer() {
  eventfd_write(stop_, 1);
  thread_.join();
  close(socket_);
  close(stop_);
  if (not_understood_ > 0) {
    report_.Add(kWho, std::to_string(not_understood_) + " packets were no questions");
  }
}

void NameServer::Serve() {
  pollfd waited[] = {{socket_, POLLIN, 0}, {stop_, POLLIN, 0}};
  char buffer[kLongestPacket];
  while (poll(waited, 2, -1) >= 0 && waited[1].revents == 0) {
    sockaddr_storage client{};
    socklen_t size = sizeof client;
    auto* const address = reinterpret_cast<sockaddr*>(&client);
    const auto length = recvfrom(socket_, buffer, sizeof buffer, MSG_DONTWAIT, address, &size);
    if (length < 0) continue;
    const auto answer = Answer({buffer, static_cast<std::size_t>(length)});
    if (answer) sendto(socket_, answer->data(), answer->size(), MSG_DONTWAIT, address, size);
  }
}

std::optional<std::string> NameServer::Answer(std::string_view packet) {
  const auto question = ReadQuestion(packet);
  if (!question) {
    ++not_understood_;
    return std::nullopt;
  }
  const auto add = [&](const std::string& outcome) {
    report_.Add(kWho, Printable(question->name) + ' ' + TypeName(question->type) + ": " + outcome);
  };
  if (state_ == State::kSilent) {
    add("silent");
    return std::nullopt;
  }
  if (state_ == State::kRefuses) {
    add("refused");
    return MakeAnswer(*question, DnsCode::kRefused, {});
  }
  const std::vector<Address>* const addresses = Find(question->name);
  if (addresses == nullptr) {
    add("no such name");
    return MakeAnswer(*question, DnsCode::kNoSuchName, {});
  }
  add(AddressesOfType(*addresses, question->type));
  return MakeAnswer(*question, DnsCode::kGood, *addresses);
}

const std::vector<Address>* NameServer::Find(const std::string& name) const {
  if (state_ == State::kPoisoned) {
    if (const auto found = poisoned_.find(name); found != poisoned_.end()) return &found->second;
  }
  const auto found = names_.find(name);
  return found == names_.end() ? nullptr : &found->second;
}

}  // namespace tarvel_backend
