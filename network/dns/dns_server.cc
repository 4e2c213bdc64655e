#include "network/dns/dns_server.h"

#include <ares.h>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "base/process/steady_time.h"
#include "base/text/strings.h"

namespace zo_net {
namespace {

constexpr std::int64_t kLongestLookup = 3'000;  // Milliseconds.
// How long the thread waits at a time; so long takes a stop in the middle of a lookup.
constexpr suseconds_t kSliceMicroseconds = 80'000;

int SocketFamilyOf(AddressFamily family) {
  if (family == kAddressFamilyIPv4) return AF_INET;
  return family == kAddressFamilyIPv6 ? AF_INET6 : AF_UNSPEC;
}

AddressFamily FamilyOf(int socket_family) {
  if (socket_family == AF_INET) return kAddressFamilyIPv4;
  return socket_family == AF_INET6 ? kAddressFamilyIPv6 : kAddressFamilyAny;
}

std::string TextOfAddress(const char* raw, int length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(raw);
  using zo_base::StringFormat;
  if (length == 4)
    return zo_base::StringFormat("%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
  if (length != 16) return std::string();
  std::string text;
  for (int i = 0; i < length; i += 2) {
    if (i != 0) text += ':';
    text += zo_base::StringFormat("%02x%02x", bytes[i], bytes[i + 1]);
  }
  return text;
}

std::vector<std::string> TextsOf(char* const* list) {
  std::vector<std::string> texts;
  for (; list != nullptr && *list != nullptr; ++list) texts.emplace_back(*list);
  return texts;
}

void Fill(DnsServer::HostResult& result, const hostent& entry) {
  if (entry.h_name != nullptr) result.host = entry.h_name;
  result.aliases = TextsOf(entry.h_aliases);
  result.address_family = FamilyOf(entry.h_addrtype);
  for (char** raw = entry.h_addr_list; raw != nullptr && *raw != nullptr; ++raw) {
    result.addresses.push_back(TextOfAddress(*raw, entry.h_length));
  }
}

// c-ares puts its sockets into the sets without a look at their numbers.
int RefuseHighDescriptor(ares_socket_t descriptor, int, void*) {
  return descriptor < FD_SETSIZE ? 0 : -1;
}

}  // namespace

// The one lookup that may be under way, with its channel. Lives on the thread but for its making.
class DnsServer::Lookup {
 public:
  explicit Lookup(std::weak_ptr<DnsServer> server) : server_(std::move(server)) {}

  void OpenChannel();
  void CloseChannel();
  void Run(const std::string& host, const HostCallback& callback, AddressFamily family);

 private:
  // Handed to c-ares, which gives it back exactly once.
  struct HostCallbackContext {
    HostCallback callback;
    Lookup* lookup;
  };

  static void OnHost(void* context, int status, int timeouts, hostent* entry);

  void ProcessUntilDone();
  // The server has gone, or its thread is told to end.
  bool MustStop() const;

  const std::weak_ptr<DnsServer> server_;
  bool callback_called_ = false;  // The lookup under way has delivered its result.
  ares_channel channel_ = nullptr;
  ares_options options_{};  // Nothing of it is used: c-ares's defaults hold.
};

DnsServer::~DnsServer() { Stop(); }

void DnsServer::Start() {
  if (IsRunning()) return;
  if (thread == nullptr) {
    thread = std::make_shared<zo_base::TaskThread>("dns_server");
    lookup = std::make_shared<Lookup>(shared_from_this<DnsServer>());
    thread->Connect<>(zo_base::SIG_ThreadBegin, [lookup = lookup] { lookup->OpenChannel(); });
    thread->Connect<>(zo_base::SIG_ThreadEnd, [lookup = lookup] { lookup->CloseChannel(); });
  }
  thread->Start();
}

void DnsServer::Stop() {
  if (thread) thread->Stop();
}

bool DnsServer::IsRunning() const { return thread && thread->IsRunning(); }

void DnsServer::GetHostByName(const std::string& host, HostCallback callback,
                              AddressFamily family) {
  if (!IsRunning()) return;
  thread->PostTask([lookup = lookup, host, callback = std::move(callback), family] {
    lookup->Run(host, callback, family);
  });
}

void DnsServer::GetHostByName(const std::list<std::string>& hosts, const HostsCallback& callback,
                              AddressFamily family) {
  // Shared by the lookups: the callback may hold much, and each lookup keeps its own closure.
  struct Gathering {
    const HostsCallback callback;
    const std::size_t count;
    std::map<std::string, HostResult> results;
  };
  const auto gathering = std::make_shared<Gathering>(Gathering{callback, hosts.size(), {}});
  for (const std::string& host : hosts) {
    const auto store = [host, gathering](const HostResult& result) {
      gathering->results[host] = result;
      if (gathering->results.size() == gathering->count) gathering->callback(gathering->results);
    };
    GetHostByName(host, store, family);
  }
}

void DnsServer::Lookup::OpenChannel() {
  if (ares_init_options(&channel_, &options_, 0) != ARES_SUCCESS) {
    channel_ = nullptr;
    return;
  }
  ares_set_socket_configure_callback(channel_, RefuseHighDescriptor, nullptr);
}

void DnsServer::Lookup::CloseChannel() {
  if (channel_ != nullptr) ares_destroy(channel_);
  channel_ = nullptr;
}

void DnsServer::Lookup::Run(const std::string& host, const HostCallback& callback,
                            AddressFamily family) {
  callback_called_ = false;
  auto* const context = new HostCallbackContext{callback, this};
  if (channel_ == nullptr) {
    OnHost(context, ARES_ENOTINITIALIZED, 0, nullptr);
    return;
  }
  ares_gethostbyname(channel_, host.c_str(), SocketFamilyOf(family), OnHost, context);
  ProcessUntilDone();
  ares_cancel(channel_);  // Delivers the failure of a lookup that is still under way.
}

void DnsServer::Lookup::ProcessUntilDone() {
  const std::int64_t start = zo_base::SteadyMilliseconds();
  while (zo_base::SteadyMilliseconds() - start < kLongestLookup && !MustStop()) {
    fd_set readable;
    fd_set writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    const int nfds = ares_fds(channel_, &readable, &writable);
    if (nfds == 0) return;
    timeval slice{0, kSliceMicroseconds};
    const int ready = select(nfds, &readable, &writable, nullptr, &slice);
    if (ready == -1 && errno == EINTR) continue;
    if (ready == -1 || MustStop()) return;
    ares_process(channel_, &readable, &writable);
  }
}

bool DnsServer::Lookup::MustStop() const {
  const auto server = server_.lock();
  return server == nullptr || server->thread->IsStopping();
}

void DnsServer::Lookup::OnHost(void* argument, int status, int timeouts, hostent* entry) {
  if (argument == nullptr) return;
  const std::unique_ptr<HostCallbackContext> context(static_cast<HostCallbackContext*>(argument));
  Lookup& lookup = *context->lookup;
  const auto server = lookup.server_.lock();
  if (server == nullptr || lookup.callback_called_) return;
  lookup.callback_called_ = true;
  HostResult result;
  result.valid = true;
  result.success = status == ARES_SUCCESS;
  result.timeouts = timeouts;
  if (entry != nullptr) Fill(result, *entry);
  context->callback(result);
}

}  // namespace zo_net
