// The flat interface of tarvel, a client-side high-availability network library. tarvel/client.h
// is a C++ interface over it.
//
//   zo_tarvel::_ZOTarvelEnvironmentSettings settings;
//   ... fill in ...
//   const int id = zo_tarvel::StartTarvelEnvironment(settings);
//   zo_tarvel::IZOTarvelObject* object = zo_tarvel::GetTarvelObject(id);
//   ... use `object` ...
//   zo_tarvel::ExitTarvelEnvironment(id);
//
// This header needs the standard library only and compiles as C++17 and later.
//
// Strings in records are NUL-terminated in fixed arrays. A string that fills its array is read to
// the array's end. All strings are UTF-8. All durations are milliseconds.
//
// No function throws. Callbacks must not throw either: an exception that leaves one ends the
// process.
//
// Records hold std::string and std::vector, so client and library must be compiled with the same
// C++ standard library. With another one this header does not compile.
#ifndef TARVEL_TARVEL_H_
#define TARVEL_TARVEL_H_

#include <tarvel/address_family.h>
#include <tarvel/version.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A client with another std::string or std::vector would link without an error and read garbage.
#if defined(__linux__) && defined(__GNUC__)
#if defined(TARVEL_STDLIB_LIBCXX)
#if !defined(_LIBCPP_VERSION)
#error \
    "tarvel: TARVEL_STDLIB_LIBCXX stands for a library built with libc++, but this is another \
standard library. Add -stdlib=libc++ (clang++ only), or remove -DTARVEL_STDLIB_LIBCXX."
#endif
#elif defined(_LIBCPP_VERSION)
#error \
    "tarvel: the library was built with libstdc++, but this is libc++. Remove -stdlib=libc++, or \
build both the library and its clients with -stdlib=libc++ -DTARVEL_STDLIB_LIBCXX."
#elif defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error \
    "tarvel: the library was built with the new std::string of libstdc++, but this is the old one. \
Remove -D_GLIBCXX_USE_CXX11_ABI=0."
#elif defined(_GLIBCXX_DEBUG)
#error \
    "tarvel: the library was built without the debug mode of libstdc++, which has another \
std::vector. Remove -D_GLIBCXX_DEBUG; -D_GLIBCXX_ASSERTIONS may be used instead."
#endif
#endif

#if defined(__GNUC__)
#define TARVEL_API __attribute__((visibility("default")))
#else
#define TARVEL_API
#endif

namespace zo_tarvel {

/// zo_net::AddressFamily as the LBS service names it.
enum EMAddressFamily : std::int32_t {
  kEMAddressFamilyAny = 0,
  kEMAddressFamilyIPv4 = 1,
  kEMAddressFamilyIPv6 = 2,
};

// --- Sizes of the caller's buffers ---
//
// The library copies its `char*` results without a terminating zero and cannot check the size of
// the buffer. Pass a zeroed buffer of at least the size named here.

/// For the host of a link address: 255 bytes, the longest host name, and the zero.
inline constexpr std::size_t kLinkAddressBufferSize = 256;
/// Of the buffer that the library passes to an AccIDGetter.
inline constexpr std::size_t kAccIDBufferSize = 256;
/// For the LBS answer and each string taken from it: 8 MiB, the longest that the library keeps, and
/// the zero. Never put such a buffer on the stack: allocate it with calloc.
inline constexpr std::size_t kLBSTextBufferSize = 8 * 1024 * 1024 + 1;

// --- Environment ---

/// The settings of the environment. StartTarvelEnvironment copies them. Fixed layout.
struct _ZOTarvelEnvironmentSettings {
  /// Resolve host names over HTTPDNS when a request has failed. On unless -1.
  std::int32_t enable_httpdns = 0;
  /// Send requests to https URLs only. On unless 0. An http URL without a port becomes https, and
  /// one with a port is left out.
  std::uint8_t only_https_supported = 0;
  /// Name of the business. Each business has its own log and caches. Empty: "im_g1".
  char business_type[32] = {};
  /// The application key, which may be set later; see SetBusinessToken. While it is empty, Init and
  /// NotifyNetworkChanged send no update. Updates for other reasons are sent without a key.
  ///
  /// The key appears in the URLs of sub requests (RequestErrorRecord::url), in exception records
  /// (`target` and `description`), in the log's first lines, and in log lines of each update.
  char business_token[128] = {};
  /// The client's version, sent to the servers.
  char business_version[128] = {};
  /// Version number of the client's SDK.
  std::int32_t sv = 0;
  /// Version number of the client's protocol.
  std::int32_t pv = 0;
  /// The servers' number for this kind of client.
  std::int32_t client_type = 0;
  /// Directory for cache files, created when needed. Empty: `log_path`. A backslash counts as "/".
  char appdata_path[1024] = {};
  /// Directory for the log. Empty: `appdata_path`. With both empty: the root directory.
  char log_path[1024] = {};
  /// Receives all log lines instead of a file; null for the file. The argument is one line,
  /// NUL-terminated and valid during the call. Called on any thread, also on several in parallel.
  ///
  /// The library calls it in the middle of its work, with locks held. In this function:
  /// - StartTarvelEnvironment returns 0.
  /// - ExitTarvelEnvironment, ReleaseLBSService, SetBusinessToken, NotifyNetworkChanged, Init and
  ///   Update return at once. Init returns true. The library carries them out later on the same
  ///   thread: when the client's call that logged the line is about to return, or when the present
  ///   task of a library thread has ended. They log lines too, so a function that makes such a call
  ///   for each line never ends.
  /// - GetLBSResponse does not wait. All other functions work as usual.
  /// - It must not wait for another thread that calls the library.
  /// - A process that calls exit() in it leaves the environment as it is.
  ///
  /// It stays set after an exit. A later start without a function keeps it and writes no file; a
  /// later start with another function replaces it.
  void (*custom_log)(const char* line) = nullptr;
  /// Send requests even when the network looks unavailable. On unless -1.
  std::int32_t try_http_request_on_netunav = 0;
  /// Time-out of one sub request, 1000 to 30000 ms. Other values become the nearer end. Below 1:
  /// this time-out is 7000 and the next field is 2000.
  std::int32_t single_request_timeout = 0;
  /// Time after which the next URL starts in parallel to a slow one, from 200 ms to below the
  /// time-out. Lower values become 200, higher ones the time-out minus 80.
  std::int32_t single_request_prefail_timeout = 0;
  /// Start with the URLs on IP addresses. On only if 1.
  std::int32_t http_request_ip_preferred = 0;
  /// Create exception records for failed sub requests. On only if 1. See SetExceptionDataReporter.
  std::int32_t enable_exception_data_reporting = 0;
};

class IZOTarvelObject;

/// Starts the environment, or counts one more start of a running one. Returns the id of its object,
/// which is 1.
///
/// Only the first start reads its settings. Each start needs one ExitTarvelEnvironment. The last
/// exit stops the environment; a new start may then use new settings. An environment that still
/// runs when the process ends or the library is unloaded is stopped at that moment.
///
/// Returns 0
/// - while the library is being unloaded,
/// - in a child forked while an environment was up, starting or exiting (there, no function does
///   anything),
/// - in a callback while another thread, which may be waiting for this one, is in an exit,
/// - in the log function, and
/// - on a thread that is in the middle of an exit.
///
/// Threads: any; one start or exit runs at a time. A start after ExitTarvelEnvironment(1) while
/// other starts are outstanding is a grave misuse and ends the process by a trap.
TARVEL_API int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept;

/// Returns the object of an id; null for 0, for an unknown id, and while the library is being
/// unloaded. The library owns the object. The pointer is valid until the matching exit. Threads:
/// any.
TARVEL_API IZOTarvelObject* GetTarvelObject(int id) noexcept;

/// Takes one start back. Stops and releases the object of `id` at once; an `id` of 0 or an unknown
/// one only counts. The last exit stops all threads, waits for them and releases everything. There
/// is no time limit: the call lasts as long as the client's callbacks that still run. Without an
/// environment it does nothing.
///
/// Threads: any. In a callback the call does not wait for its own thread, which ends after the
/// callback has returned. Don't use pointers from the library after the call, and unload the
/// library only after the callback has returned. If another thread is in a start or an exit at that
/// moment, the call returns at once and that thread carries this exit out too. In the log function
/// the exit is carried out later; see `custom_log`.
TARVEL_API void ExitTarvelEnvironment(int id) noexcept;

class IZOTarvelLBSService;

/// A started environment, as the client sees it. Owned by the library. Threads: any.
class IZOTarvelObject {
 public:
  /// Tells the library that the network has changed, and which addresses it can reach now. The
  /// parts of the library that use this are told on the calling thread before the call returns.
  virtual void NotifyNetworkChanged(zo_net::AddressFamily family) = 0;

  /// Returns the LBS service; null in a build without it, and while the object is being released.
  /// The first call creates the service but doesn't start it; see IZOTarvelLBSService::Init. The
  /// object owns it. The pointer is valid until ReleaseLBSService or the matching exit.
  virtual IZOTarvelLBSService* GetLBSService() = 0;

  /// Stops the service, waits for its thread (except on that thread itself) and destroys it. The
  /// next GetLBSService creates a new one. After the call none of the client's three callbacks
  /// runs, unless the call came from a callback. Don't call it while another thread uses the
  /// service or is in GetLBSService.
  virtual void ReleaseLBSService() = 0;

  /// Sets the business token, a NUL-terminated string that is copied; null counts as empty. Another
  /// value than before starts an update, even an empty one: that update is sent without a key.
  virtual void SetBusinessToken(const char* token) = 0;

 protected:
  virtual ~IZOTarvelObject() = default;  // The client never deletes it.
};

// --- LBS service ---

/// The settings of the LBS service. Init copies them. Fixed layout.
struct _ZOTarvelLBSSettings {
  /// The deployment uses a private server. Only logged.
  bool using_private = false;
  /// URL of the LBS server. Empty: the built-in one.
  char lbs_main_addr[512] = {};
  /// Backup LBS URLs in the order of their use; empty slots are skipped.
  char lbs_backup_addrs[5][512] = {};
  /// Link address "host:port" to fall back to. Empty: the built-in one.
  char default_link[128] = {};
  /// The same for IPv6. Empty: `default_link`.
  char default_link_ipv6[128] = {};
  /// Fixed link addresses "host:port" for the time before the first answer; empty slots are
  /// skipped. With all slots empty: the defaults that suit `addr_family`. A later run keeps the
  /// addresses of the first run until a server has answered, or until `lbs_main_addr` or the family
  /// changes.
  char link_list[5][128] = {};
  /// Not read. Leave zero.
  char reserved[640] = {};
  /// An EMAddressFamily; any other value leaves the built-in one, IPv4.
  std::uint32_t addr_family = 0;
  /// Time-out of one sub request, 1000 to 30000 ms. Other values become the nearer end. Below 1:
  /// this and the next value are those of the environment.
  std::int32_t sreq_timeout_ms = 0;
  /// Time after which the next LBS URL starts in parallel to a slow one, from 200 ms to below the
  /// time-out. Lower values become 200, higher ones the time-out minus 80.
  std::int32_t sreq_pred_fail_time_ms = 0;
  /// Host name for LBS URLs on IP addresses, used when the first LBS URL has no host name. It is
  /// sent as the host of the request, and an https server's certificate is checked against it.
  char def_lbs_host[512] = {};
};

/// One finished sub request of the LBS service. The strings are NUL-terminated and valid during the
/// callback. An empty string is null.
struct RequestErrorRecord {
  std::int32_t code;    ///< HTTP status; 0 when the transfer failed before it had one.
  const char* url;      ///< With the application key in its query.
  const char* headers;  ///< Lines of name, ":" and value, joined by "\r\n".
  const char* body;     ///< Of the answer; the error text of a failed transfer.
};

/// The switch of the message statistics. Fixed layout, packed.
struct _ZOTarvelMsgStatInfo {
  bool enable = false;  ///< Whether statistics are to be sent.
  char host[512] = {};  ///< URL of the statistics server, cut to 511 bytes.
  char api[512] = {};   ///< Path of the report, cut to 511 bytes.
  char desc[128] = {};  ///< Description, cut to 127 bytes.
};

/// Called after each update, unless a token change or an exit cancelled it. A few other updates end
/// without a call too, see below. `code` is 200 for a fresh answer and 0 for a failure. `response`
/// is the active answer, NUL-terminated and valid during the call. On the service's thread. After a
/// failure the next update follows in an hour.
///
/// Not called for an update
/// - (a) that a change of the token cancels. The change starts another update.
/// - (b) that the exit or ReleaseLBSService cancels.
/// - (c) that finds the network unavailable, with `try_http_request_on_netunav` -1.
/// - (d) that failed on all URLs, when HTTPDNS was asked for their hosts and found no address.
/// - (e) that has no usable URL. Each LBS URL of the active answer and `lbs_main_addr` is not an
///   http or https URL, is on an IP address of another family, or is left out by
///   `only_https_supported`.
/// - (f) for which the system gives the service no thread. The next update attempts it again.
///
/// (c), (d) and (f) set no timer. The next update is started by Update, by a change of the token,
/// by IZOTarvelObject::NotifyNetworkChanged while a token is set, by a used-up list of link
/// addresses, or by a timer that was set before. After (e) only a forced update starts: by Update
/// with `force`, by a change of the token, or by NotifyNetworkChanged with another family while a
/// token is set. Unforced calls of Update, used-up lists and timers then start none.
using LBSCallback = void (*)(std::int32_t code, const char* response, void* user);

/// Writes the account id into `buffer`, kAccIDBufferSize zeroed bytes, the last of which stays
/// zero. On the service's thread.
using AccIDGetter = void (*)(void* user, char* buffer);

/// Called for each finished sub request of an update. `record` and its strings are valid during the
/// call. On the library's request thread.
using RequestErrorCollector = void (*)(void* user, const RequestErrorRecord* record);

/// Keeps the answer of the load-balance server fresh and serves link addresses from it.
///
/// Owned by the library; obtained from IZOTarvelObject::GetLBSService. Threads: any. Set the
/// callbacks before Init. The library passes `user` back unchanged; it belongs to the client.
///
/// The functions with a `char* out` write "inited=false" before Init. They write no terminating
/// zero: `out` must be a zeroed buffer of kLBSTextBufferSize bytes. With a null `out` they do
/// nothing.
class IZOTarvelLBSService {
 public:
  /// Loads the cached answer or builds a local one, so that link addresses are available when the
  /// call returns, and starts the service's thread. Returns true. A second call does nothing.
  virtual bool Init(const _ZOTarvelLBSSettings& settings) = 0;

  /// Requests a fresh answer. Of the LBS URLs on IP addresses those of `family` are used; all of
  /// them for kEMAddressFamilyAny. A forced call starts an update at once, even when one is under
  /// way. Unforced calls are batched: the third one, or 1200 ms after the first, starts one update.
  /// They are ignored while an update is under way, and after one that had no usable URL. Before
  /// Init the call does nothing. See LBSCallback for the result.
  virtual void Update(EMAddressFamily family, bool force) = 0;

  /// Replaces a callback; null for none. A call of the old one may still run when the function
  /// returns; see IZOTarvelObject::ReleaseLBSService.
  virtual void SetLBSCallback(LBSCallback callback, void* user) = 0;
  /// As SetLBSCallback.
  virtual void SetAccIDGetter(AccIDGetter getter, void* user) = 0;
  /// As SetLBSCallback.
  virtual void SetRequestErrorCollector(RequestErrorCollector collector, void* user) = 0;

  /// Writes the active answer. With `no_wait` false the call first waits until the update under way
  /// has succeeded, failed or been cancelled; of several, until the first has. There is no time
  /// limit, but an exit ends the wait too. It waits neither for calls of Update that are still
  /// batched, nor for an update without a usable URL (see LBSCallback), nor for the LBSCallback. In
  /// a callback it never waits.
  virtual void GetLBSResponse(bool no_wait, char* out) = 0;

  /// Takes the next address of the list. Call it again before each connection attempt. After the
  /// last address it returns a default and requests a fresh list. Returns false, and writes
  /// nothing, only before Init. Any of the three may be null:
  /// - `addr` receives the host, an IPv6 address in brackets. It is a zeroed buffer of
  ///   kLinkAddressBufferSize bytes.
  /// - `port` receives 0 to 65535; 0 when the address has no valid port.
  /// - `family` is the wanted kind, and receives the kind of the host: kEMAddressFamilyAny for a
  ///   name.
  virtual bool GetLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) = 0;

  /// Writes the download URL of the object storage. This string and the four below are each the
  /// last one of an answer that was not empty: an answer without it leaves the one before.
  virtual void GetZEBDL(char* out) = 0;
  /// Writes the JSON list of download URLs.
  virtual void GetZEBDLList(char* out) = 0;
  /// Writes the JSON list of storage servers.
  virtual void GetZEBList(char* out) = 0;
  /// Writes the name of the answer.
  virtual void GetName(char* out) = 0;
  /// Writes the description of the answer.
  virtual void GetDesc(char* out) = 0;

  /// Returns how many link addresses the active answer has; -1 before Init.
  virtual std::int32_t GetLinkCount() = 0;

  /// Writes the address that the next GetLinkAddress for any family would return, without taking
  /// it. Buffers as there; `family` is only written. Returns false, and writes nothing, before Init
  /// and after the last address.
  virtual bool GetCurrentLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) = 0;

  /// Reports that the client has connected to this address. `host` is NUL-terminated, `port` 1 to
  /// 65535. Changes nothing today.
  virtual void OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) = 0;

  /// Fills the caller's `info`; before Init with the switch off. With null it does nothing.
  virtual void GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) = 0;

 protected:
  virtual ~IZOTarvelLBSService() = default;  // The client never deletes it.
};

// --- Exception records ---

/// One failed sub request.
struct TarvelExceptionExtension {
  std::int32_t operation_type = 0;  ///< 0 for a GET, 1 for other requests.
  std::string target;               ///< The URL, of LBS requests with the application key.
  std::int32_t code = 0;            ///< Error or status code.
  std::string description;          ///< The details as JSON.
  std::string context;              ///< Further details; empty today.
};

/// One exception record. Owned by the library, valid during the callback.
struct TarvelExceptionData {
  std::string user_info;               ///< About the user; empty today.
  std::string reserved_info;           ///< Always empty.
  std::string process_id;              ///< Trace id of the request.
  std::int32_t action = 0;             ///< Kind of record; 1 today.
  std::int64_t duration = 0;           ///< Milliseconds that the sub request took.
  std::int64_t start_time = 0;         ///< When it ended, in milliseconds since 1970.
  std::int32_t state = 0;              ///< 1 today.
  std::int32_t exception_service = 0;  ///< Who asked: 1 the LBS service, 5 HTTPDNS, 0 others.
  std::vector<TarvelExceptionExtension> extension;  ///< The failed sub requests; one today.
};

/// Receives one exception record. On the library's request thread; the next record waits until the
/// function returns.
using ExceptionDataReporter = void (*)(const TarvelExceptionData& data);

/// Sets the receiver of exception records. It first receives the records so far, in their order.
/// The first receiver stays until the environment stops; a new start needs a new call. Without an
/// environment the call does nothing. Threads: any.
///
/// Records exist only when `enable_exception_data_reporting` is on.
TARVEL_API void SetExceptionDataReporter(const ExceptionDataReporter& reporter) noexcept;

/// Returns the record as one JSON object, without `user_info` and `reserved_info`; empty while the
/// library is being unloaded. Needs no environment. Threads: any.
TARVEL_API std::string TarvelExceptionDataToJsonString(const TarvelExceptionData& data) noexcept;

}  // namespace zo_tarvel

#include <tarvel/record_layout.h>

#endif  // TARVEL_TARVEL_H_
