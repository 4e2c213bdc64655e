// tarvel::Client: the library with strings, chrono and std::function.
//
//   tarvel::Settings settings;
//   settings.token = "my application key";
//   settings.directory = "/var/lib/my-client";
//   settings.lbs_url = "https://lbs.example/lbs/conf.jsp";
//   std::string error;
//   auto client = tarvel::Client::Start(settings, error);
//   if (!client) return Complain(error);
//   if (auto link = client->NextLinkAddress()) Connect(link->host, link->port);
//
// This header is inline code over the functions of tarvel.h. It compiles as C++17 and later, also
// without exceptions and without RTTI.
#ifndef TARVEL_CLIENT_H_
#define TARVEL_CLIENT_H_

#include <tarvel/tarvel.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarvel {

/// IPv4 addresses, IPv6 addresses, or both. A LinkAddress with kAny has a host name.
enum class Family : std::int32_t { kAny = 0, kIPv4 = 1, kIPv6 = 2 };

/// Where a long-lived connection of the client goes.
struct LinkAddress {
  std::string host;              ///< A host name or an IP address, without brackets.
  std::uint16_t port = 0;        ///< 0 when the server's list has no valid port.
  Family family = Family::kAny;  ///< The kind of `host`.

  /// The host as it stands in a URL: an IPv6 address in brackets.
  std::string UrlHost() const { return family == Family::kIPv6 ? '[' + host + ']' : host; }
  /// "host:port", with the host as in a URL.
  std::string ToString() const { return UrlHost() + ':' + std::to_string(port); }
};

/// The end of an update.
struct UpdateResult {
  bool fresh = false;  ///< A server has answered. Otherwise the next update follows in an hour.
  std::string answer;  ///< The active answer, JSON.
};

/// One finished sub request of an update.
struct Attempt {
  std::int32_t status = 0;  ///< HTTP status; 0 when the transfer failed before it had one.
  std::string url;          ///< With the application key in its query.
  std::string headers;      ///< Lines of name, ":" and value, joined by "\r\n".
  std::string body;         ///< Of the answer; the error text of a failed transfer.
};

/// The switch of the message statistics, as the server sets it.
struct MessageStatistics {
  bool enabled = false;     ///< Whether statistics are to be sent.
  std::string host;         ///< URL of the statistics server, cut to 511 bytes.
  std::string api;          ///< Path of the report, cut to 511 bytes.
  std::string description;  ///< Cut to 127 bytes.
};

/// One exception record; see tarvel.h.
using ExceptionRecord = zo_tarvel::TarvelExceptionData;

/// The record as one JSON object, without `user_info` and `reserved_info`.
inline std::string ToJson(const ExceptionRecord& record) {
  return zo_tarvel::TarvelExceptionDataToJsonString(record);
}

/// What a client starts with.
///
/// The functions may be empty. They run on threads of the library, several at once, and may run
/// before Start has returned; `on_log` also runs on the threads of the client's own calls. They
/// must not throw. Each may destroy the client; the function object lives until its call has
/// returned. A function may use the client until the end of the object, which waits for it.
///
/// All strings are UTF-8 without control characters.
struct Settings {
  // --- Who the client is ---

  /// The application key. It shows up in the query of the LBS requests, so in `Attempt::url` too,
  /// in exception records, and in the log. Required, 128 bytes at most.
  std::string token;
  /// Name of the business, 32 bytes at most. Each business has files of its own. Empty: "im_g1".
  std::string business;
  /// Sent to the servers, 128 bytes at most.
  std::string client_version;
  std::int32_t sdk_version = 0;       ///< Version number of the client's SDK.
  std::int32_t protocol_version = 0;  ///< Version number of the client's protocol.
  std::int32_t client_type = 0;       ///< The servers' number for this kind of client.

  // --- Where its files are ---

  /// Directory for the caches, created when needed, 1024 bytes at most. Required.
  std::string directory;
  /// Directory for the log. Empty: `directory`.
  std::string log_directory;

  // --- Whom it asks ---

  /// URL of the LBS server, 512 bytes at most. Empty: the built-in one. An http URL with a port
  /// counts only without `https_only`.
  std::string lbs_url;
  /// Five at most, in the order of their use.
  std::vector<std::string> backup_lbs_urls;
  /// Host name for LBS URLs on IP addresses, when the first URL has none.
  std::string lbs_host;
  /// Link addresses "host:port" for the time before the first answer, five at most, of 128 bytes.
  std::vector<std::string> links;
  /// Link address to fall back to. Empty: the built-in one.
  std::string default_link;
  /// The same for IPv6. Empty: `default_link`.
  std::string default_link_ipv6;
  /// The addresses that the network can reach.
  Family family = Family::kIPv4;

  // --- How it asks ---

  /// Time-out of one URL, 1 to 30 s.
  std::chrono::milliseconds request_timeout{7'000};
  /// After this time the next URL starts in parallel to a slow one: 200 ms to below the time-out.
  std::chrono::milliseconds head_start{2'000};
  bool https_only = true;            ///< An http URL without a port becomes https.
  bool httpdns = true;               ///< Resolve names over HTTPDNS when a request has failed.
  bool ask_without_network = true;   ///< Send requests even when the network looks unavailable.
  bool prefer_ip_addresses = false;  ///< Start with the URLs on IP addresses.

  // --- Whom it tells ---

  /// Called after each update, unless a change of the token or an exit cancelled it. Some updates
  /// end without a call; see zo_tarvel::LBSCallback and `on_silence`.
  std::function<void(const UpdateResult&)> on_update;
  /// Called for each finished sub request of an update.
  std::function<void(const Attempt&)> on_attempt;
  /// Called with each failed sub request, HTTPDNS included. Records are made only if this is set.
  std::function<void(const ExceptionRecord&)> on_exception;
  /// Receives the log lines; then there is no log file. See `custom_log` in tarvel.h for what it
  /// must not do. Once a client of the process has had this, later ones write no log file either,
  /// and the code that includes this header must stay loaded. A client that ends in it doesn't wait
  /// for `on_silence`.
  std::function<void(const char* line)> on_log;
  /// Returns the id of the account, sent with each update. One of more than 255 bytes isn't sent.
  std::function<std::string()> account_id;
  /// Called when `silence` has passed since a call of Update, SetToken or NotifyNetworkChanged, or
  /// since a start without a cached answer, and no update has ended. On a thread of its own.
  std::function<void()> on_silence;
  std::chrono::milliseconds silence{30'000};  ///< For `on_silence`; a day at most.
};

namespace detail {
class Session;
}

/// A running environment. One exists per process, and nobody may call StartTarvelEnvironment beside
/// it. The end of the object stops all threads of the library and waits for them, in a callback for
/// all but the present one.
///
/// Threads: any, but only callbacks may use a client while it is moved or destroyed. An empty one,
/// from which another was moved, may only be destroyed or assigned to.
class Client {
 public:
  /// Starts the library and loads the cached answer or builds a local one, so that there are link
  /// addresses at once. Returns nullopt, with a message for a developer in `error`, when a setting
  /// is missing, too long or out of range (the message begins with the field's name), when another
  /// client or environment runs, and where the library can't start, such as in its log function or
  /// in a forked child.
  static std::optional<Client> Start(Settings settings, std::string& error);

  /// Stops the library.
  ~Client() { Stop(); }
  /// Leaves the other one empty.
  Client(Client&&) noexcept = default;
  /// Stops this one first.
  Client& operator=(Client&& other) noexcept;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// The next address of the list. Call it again before each connection attempt. After the last
  /// address it returns the default, and a fresh list is fetched in the background.
  std::optional<LinkAddress> NextLinkAddress(Family wanted = Family::kAny);
  /// What NextLinkAddress would return, without taking it; nullopt after the last address.
  std::optional<LinkAddress> CurrentLinkAddress() const;
  /// How many link addresses the active answer has.
  std::int32_t LinkCount() const;
  /// Reports that the client has connected. Changes nothing today.
  void ReportConnected(const LinkAddress& address);

  /// Waits for the answer of a server. Returns true as soon as one is active, a cached one
  /// included; false when an update has failed or `limit` has passed. In a callback it doesn't
  /// wait.
  bool WaitForAnswer(std::chrono::milliseconds limit) const;

  /// Asks for a fresh answer: at once with `force`, else with the requests of 1.2 s.
  void Update(bool force = false, Family family = Family::kAny);
  /// Another application key, 128 bytes at most. Returns false, and changes nothing, for one that
  /// is longer, empty or has control characters.
  bool SetToken(const std::string& token);
  /// Tells the library that the network has changed, and which addresses it can reach now.
  void NotifyNetworkChanged(Family reachable);

  /// The active answer, JSON. The strings below are parts of it, up to the first NUL; when an
  /// answer has none, the one before stays.
  std::string Answer() const;
  std::string AnswerName() const;         ///< What the server calls the answer.
  std::string AnswerDescription() const;  ///< "generated locally" until a server says otherwise.
  std::string DownloadUrl() const;        ///< Of the object storage.
  std::string DownloadUrls() const;       ///< JSON list.
  std::string StorageServers() const;     ///< JSON list.
  MessageStatistics Statistics() const;   ///< The switch of the message statistics.

 private:
  explicit Client(std::shared_ptr<detail::Session> session) : session_(std::move(session)) {}
  void Stop();

  std::shared_ptr<detail::Session> session_;
};

}  // namespace tarvel

#include <tarvel/detail/client_impl.h>

#endif  // TARVEL_CLIENT_H_
