#include "network/dns/dns_server.h"

#include <ares.h>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <utility>

#include "base/text/strings.h"
#include "base/thread/thread_checker.h"

namespace zo_net {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestLookup{3};
// The longest wait for a socket, and so the longest time that Stop() waits for a running lookup.
constexpr std::chrono::microseconds kWaitSlice{80'000};

int SocketFamilyOf(AddressFamily family) {
  if (family == kAddressFamilyIPv4) return AF_INET;
  return family == kAddressFamilyIPv6 ? AF_INET6 : AF_UNSPEC;
}

AddressFamily FamilyOf(int socket_family) {
  if (socket_family == AF_INET) return kAddressFamilyIPv4;
  return socket_family == AF_INET6 ? kAddressFamilyIPv6 : kAddressFamilyAny;
}

std::string FormatAddress(const char* raw, int length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(raw);
  using zo_base::StringFormat;
  if (length == 4) return StringFormat("%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
  std::string text;
  for (int i = 0; length == 16 && i < length; i += 2) {
    text += StringFormat(i == 0 ? "%02x%02x" : ":%02x%02x", bytes[i], bytes[i + 1]);
  }
  return text;
}

void CopyEntry(const hostent& entry, DnsServer::HostResult& result) {
  if (entry.h_name != nullptr) result.host = entry.h_name;
  for (char** alias = entry.h_aliases; alias != nullptr && *alias != nullptr; ++alias) {
    result.aliases.emplace_back(*alias);
  }
  result.address_family = FamilyOf(entry.h_addrtype);
  for (char** raw = entry.h_addr_list; raw != nullptr && *raw != nullptr; ++raw) {
    result.addresses.push_back(FormatAddress(*raw, entry.h_length));
  }
}

// c-ares adds sockets to an fd_set without checking that their numbers fit.
int RefuseHighDescriptor(ares_socket_t descriptor, int, void*) {
  return descriptor < FD_SETSIZE ? 0 : -1;
}

}  // namespace

// The channel and the one lookup that may run on it.
//
// Threads: made by Start(), then used on the thread "dns_server" only, hence without a lock.
// Ownership: shared by the DnsServer and its thread.
class DnsServer::Lookup {
 public:
  explicit Lookup(std::weak_ptr<DnsServer> server) : server_(std::move(server)) {}

  void OpenChannel();
  void CloseChannel();
  void Run(const std::string& host, const HostCallback& callback, AddressFamily family);

 private:
  // Given to c-ares, which passes it to OnHost exactly once.
  struct HostCallbackContext {
    HostCallback callback;
    Lookup* lookup;
  };

  static void OnHost(void* context, int status, int timeouts, hostent* entry);

  void ProcessUntilDone();
  // Whether the server is destroyed, or its thread is to end.
  bool MustStop() const;

  const std::weak_ptr<DnsServer> server_;
  const zo_base::ThreadChecker thread_checker_;
  bool callback_called_ = false;  // For the running lookup.
  ares_channel channel_ = nullptr;
  ares_options options_{};  // Not read: c-ares uses its defaults.
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
  // Shared by the lookups, since the callback may hold large values.
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
  thread_checker_.AssertSameThread();
  if (ares_init_options(&channel_, &options_, 0) != ARES_SUCCESS) {
    channel_ = nullptr;
    return;
  }
  ares_set_socket_configure_callback(channel_, RefuseHighDescriptor, nullptr);
}

void DnsServer::Lookup::CloseChannel() {
  thread_checker_.AssertSameThread();
  if (channel_ != nullptr) ares_destroy(channel_);
  channel_ = nullptr;
}

void DnsServer::Lookup::Run(const std::string& host, const HostCallback& callback,
                            AddressFamily family) {
  thread_checker_.AssertSameThread();
  callback_called_ = false;
  auto* const context = new HostCallbackContext{callback, this};
  if (channel_ == nullptr) {
    OnHost(context, ARES_ENOTINITIALIZED, 0, nullptr);
    return;
  }
  ares_gethostbyname(channel_, host.c_str(), SocketFamilyOf(family), OnHost, context);
  ProcessUntilDone();
  ares_cancel(channel_);  // A lookup that is still running fails now.
}

void DnsServer::Lookup::ProcessUntilDone() {
  const auto deadline = Clock::now() + kLongestLookup;
  while (Clock::now() < deadline && !MustStop()) {
    fd_set readable;
    fd_set writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    const int nfds = ares_fds(channel_, &readable, &writable);
    if (nfds == 0) return;
    timeval slice{0, kWaitSlice.count()};
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
  const auto server = context->lookup->server_.lock();
  if (server == nullptr || std::exchange(context->lookup->callback_called_, true)) return;
  HostResult result;
  result.valid = true;
  result.success = status == ARES_SUCCESS;
  result.timeouts = timeouts;
  if (entry != nullptr) CopyEntry(*entry, result);
  context->callback(result);
}

}  // namespace zo_net
