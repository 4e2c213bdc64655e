// tarvel: a client-side high-availability network library.
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
// Texts in records are NUL-terminated in fixed arrays; a text that fills its array is read to the
// array's end. All texts are UTF-8. All durations are milliseconds.
//
// No function raises. Callbacks given to the library must not raise either: an exception that
// leaves one ends the process.
//
// Records hold std::string and std::vector. A client is therefore compiled with the same C++
// standard library as the library was; with another one this header does not compile.
#ifndef TARVEL_TARVEL_H_
#define TARVEL_TARVEL_H_

#include <tarvel/address_family.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A client that has another std::string or std::vector would link without an error, and read
// garbage.
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

// The values of zo_net::AddressFamily at the interface of the LBS service.
enum EMAddressFamily : std::int32_t {
  kEMAddressFamilyAny = 0,
  kEMAddressFamilyIPv4 = 1,
  kEMAddressFamilyIPv6 = 2,
};

// --- Sizes of the caller's buffers ---
//
// The `char*` results below are copied into the caller's buffer without a terminating zero and
// without a look at its size. Give a zeroed buffer of at least the size named here; the terminating
// zero is then in place.

// For a host of a link address: 255 bytes, the longest host name, and the zero.
inline constexpr std::size_t kLinkAddressBufferSize = 256;
// For an account id: what the library hands to an AccIDGetter.
inline constexpr std::size_t kAccIDBufferSize = 256;
// For the LBS answer and each text taken from it: 8 MiB, the longest text that the library keeps,
// and the zero. A longer one is never active.
inline constexpr std::size_t kLBSTextBufferSize = 8 * 1024 * 1024 + 1;

// --- Environment ---

// What the environment starts with. Copied at the start; the caller's memory isn't used afterwards.
// Fixed layout.
struct _ZOTarvelEnvironmentSettings {
  // Resolve host names over HTTPDNS when a request has failed. On, unless -1.
  std::int32_t enable_httpdns = 0;
  // Send requests to https URLs only. 0 is off, anything else is on. An http URL without a port
  // goes out as https, one with a port is left out.
  std::uint8_t only_https_supported = 0;
  // Names the business; logs and caches of two businesses never meet. Empty: "im_g1".
  char business_type[32] = {};
  // The application key sent to the LBS server. May be set later, see SetBusinessToken.
  char business_token[128] = {};
  // The client's version, as the servers are told.
  char business_version[128] = {};
  // Version number of the client's SDK.
  std::int32_t sv = 0;
  // Version number of the client's protocol.
  std::int32_t pv = 0;
  // Kind of client, as the servers number them.
  std::int32_t client_type = 0;
  // Directory under which cache files are kept. Empty: `log_path`. Created when needed. "\" counts
  // as "/".
  char appdata_path[1024] = {};
  // Directory under which the log is kept. Empty: `appdata_path`; with both empty, the root
  // directory.
  char log_path[1024] = {};
  // Takes all log lines instead of a file; null for the file. Called with one whole line,
  // NUL-terminated and good during the call, on whatever thread logs, also on several at once.
  //
  // It is called in the middle of the library's work, with locks held. So within it, a start
  // returns 0; what changes something (ExitTarvelEnvironment, ReleaseLBSService, SetBusinessToken,
  // NotifyNetworkChanged, Init and Update) returns at once, Init with true, and is carried out on
  // the same thread as soon as the client's call into the library that has logged is about to
  // return, on a thread of the library as soon as its present task has ended; GetLBSResponse
  // doesn't wait; all else works as always. What is carried out logs lines of its own: a function
  // that asks for more at each of them never comes to an end. It must not wait for another thread
  // that calls the library. A process that ends in it, by exit(), leaves the environment as it is.
  //
  // It stays across an exit: a later life started without one goes on with it and writes no file,
  // a later life started with another one replaces it.
  void (*custom_log)(const char* line) = nullptr;
  // Try HTTP requests also when the network looks unavailable. On, unless -1.
  std::int32_t try_http_request_on_netunav = 0;
  // Time-out of one sub request, 1000 to 30000 ms; values outside are moved to the nearer end.
  // Below 1: this time-out is 7000 and the next field counts as 2000.
  std::int32_t single_request_timeout = 0;
  // Time after which the next URL is tried beside a slow one: 200 ms up to below the time-out.
  // Lower values become 200, higher ones the time-out minus 80.
  std::int32_t single_request_prefail_timeout = 0;
  // Try the IP-literal URLs of a request first. On only if 1.
  std::int32_t http_request_ip_preferred = 0;
  // Make exception records of failed sub requests. On only if 1. See SetExceptionDataReporter.
  std::int32_t enable_exception_data_reporting = 0;
};

class IZOTarvelObject;

// Brings the environment up, or counts one more start of it, and answers the id of its object: 1.
//
// Only the first start reads its settings. Each start is matched by one ExitTarvelEnvironment; the
// last of these takes the environment down, and then it can be started anew, with new settings. An
// environment that is still up when the process ends, or when the library is unloaded, is taken
// down by then.
//
// Answers 0 when the library is being unloaded, and in a child that was forked off while an
// environment was up, or in its start or exit: all functions are dead there. Also 0 on one of the
// library's own threads (that is, in a callback) while another thread is in an exit, since that
// thread may be waiting for this one; in the log function; and on a thread that is in the middle of
// an exit.
//
// Any thread; starts and exits run one at a time, each as a whole. Starting again after an
// object has been given up by ExitTarvelEnvironment(1) while other starts are outstanding is a
// grave misuse and stops the process by a trap.
TARVEL_API int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept;

// The object of an id. Null for 0, for an unknown id and when the library is being unloaded. The
// library owns the object; the pointer is good until the matching exit. Any thread.
TARVEL_API IZOTarvelObject* GetTarvelObject(int id) noexcept;

// Gives back one start. The object of `id` is stopped and released at once; an `id` of 0 or an
// unknown one only counts. With the last start given back, all threads are stopped and waited for,
// and everything is released. There is no time limit: the call takes as long as the client's
// callbacks that are still running. Without an environment nothing happens.
//
// Any thread, also one of the library's own (that is, from a callback): there the call never waits
// for its own thread. What runs on that thread ends when the callback returns, so pointers obtained
// from the library are not to be used after the call, and the library is to be unloaded only after
// the callback has returned. If another thread is in a start or an exit at that moment, the call
// returns at once, and that other thread carries this exit out as well. A call in the log function
// is carried out later, see `custom_log`.
TARVEL_API void ExitTarvelEnvironment(int id) noexcept;

class IZOTarvelLBSService;

// The front of the library for one started environment. Owned by the library. Operations may be
// called from any thread.
class IZOTarvelObject {
 public:
  // Tells the library that the network has changed, and which addresses it can reach now. Whoever
  // in the library listens is told on the calling thread, before the call returns.
  virtual void NotifyNetworkChanged(zo_net::AddressFamily family) = 0;

  // The LBS service, made by the first call. Not started: see IZOTarvelLBSService::Init. Null in a
  // build without it, and when the object is being given up. Owned by the object; good until
  // ReleaseLBSService or the matching exit.
  virtual IZOTarvelLBSService* GetLBSService() = 0;

  // Stops the service, waits for its thread (but for a call on that very thread) and frees it; the
  // next GetLBSService makes a new one. After the call none of the client's three callbacks runs,
  // unless it was called on one of the library's own threads. Not to be called while another thread
  // uses the service or is in GetLBSService.
  virtual void ReleaseLBSService() = 0;

  // Sets the business token, a NUL-terminated text, copied; null counts as empty. A text that
  // differs from the present one is passed on as NotifyNetworkChanged does it.
  virtual void SetBusinessToken(const char* token) = 0;

 protected:
  virtual ~IZOTarvelObject() = default;  // The client never frees it.
};

// --- LBS service ---

// What the LBS service starts with. Copied by Init. Fixed layout.
struct _ZOTarvelLBSSettings {
  // The deployment uses a private server. Reported in the log, no decision rests on it.
  bool using_private = false;
  // URL of the LBS server. Empty: the built-in one.
  char lbs_main_addr[512] = {};
  // Backup LBS URLs, tried in this order; empty slots are skipped.
  char lbs_backup_addrs[5][512] = {};
  // Link address "host:port" to fall back to. Empty: the built-in one.
  char default_link[128] = {};
  // The same for IPv6. Empty: `default_link`.
  char default_link_ipv6[128] = {};
  // Fixed link addresses "host:port" for the time before the first answer; empty slots are skipped.
  // With all slots empty, the defaults that suit `addr_family`. Those of the first run without a
  // server stay until one answers, or until `lbs_main_addr` or the family changes.
  char link_list[5][128] = {};
  // Not read. Leave zero.
  char reserved[640] = {};
  // An EMAddressFamily; any other value leaves the built-in one, IPv4.
  std::uint32_t addr_family = 0;
  // Time-out of one sub request, 1000 to 30000 ms; values outside are moved to the nearer end.
  // Below 1: this and the next value are those of the environment.
  std::int32_t sreq_timeout_ms = 0;
  // Time after which the next LBS URL is tried beside a slow one: 200 ms up to below the time-out.
  // Lower values become 200, higher ones the time-out minus 80.
  std::int32_t sreq_pred_fail_time_ms = 0;
  // Host name that LBS URLs with an IP literal belong to, used when the first LBS URL has no host
  // name of its own; goes out as the host of the request and as the name that the certificate is
  // checked against.
  char def_lbs_host[512] = {};
};

// One finished sub request of the LBS service. The texts are good during the callback and null when
// empty.
struct RequestErrorRecord {
  std::int32_t code;    // HTTP status; 0 when the transfer failed before there was one.
  const char* url;      // NUL-terminated.
  const char* headers;  // NUL-terminated.
  const char* body;     // NUL-terminated; of a failed transfer, what went wrong.
};

// The switch of the message statistics. Fixed layout, packed.
struct _ZOTarvelMsgStatInfo {
  bool enable = false;  // Whether statistics are to be sent.
  char host[512] = {};  // URL of the statistics server, cut to 511 bytes.
  char api[512] = {};   // Path of the report, cut to 511 bytes.
  char desc[128] = {};  // Description, cut to 127 bytes.
};

// Called at the end of an update: `code` is 200 for a fresh answer, 0 for a failure. `response` is
// the answer that is active now, NUL-terminated and good during the call. On the service's thread.
// After a failure the next update is due in an hour.
//
// Not called for an update
// (a) that is cancelled by a change of the token. The change starts another update.
// (b) that is cancelled by the exit or by ReleaseLBSService.
// (c) that finds no way to the internet, with `try_http_request_on_netunav` -1.
// (d) that failed on all URLs, when HTTPDNS, being on, was asked for their host names and found no
//     address.
// (e) that has no URL to ask. Neither an LBS URL of the active answer nor `lbs_main_addr` can be
//     asked: each is no http or https URL, is an IP literal of another family than the update's, or
//     is left out by `only_https_supported`.
//
// (c) and (d) set no timer for the next update. It is started by Update, by
// IZOTarvelObject::NotifyNetworkChanged while a token is set, by a change of the token, by a
// used-up list of link addresses, or by a timer that was set before and still runs. After (e) only
// a forced update is started: by Update with `force`, by a change of the token, or by
// NotifyNetworkChanged with another family than before while a token is set. Until then unforced
// calls of Update, used-up lists and timers start none.
using LBSCallback = void (*)(std::int32_t code, const char* response, void* user);

// Writes the account id into `buffer`, kAccIDBufferSize zeroed bytes, the last of which stays zero.
// On the service's thread.
using AccIDGetter = void (*)(void* user, char* buffer);

// Told of each sub request of an update that has brought an answer or failed. `record` and its
// texts are good during the call. On the library's request thread.
using RequestErrorCollector = void (*)(void* user, const RequestErrorRecord* record);

// Keeps the answer of the load-balance server fresh and serves link addresses from it.
//
// Owned by the library; got from IZOTarvelObject::GetLBSService. Operations may be called from any
// thread. Set the callbacks before Init; `user` is handed back as it was given and belongs to the
// client.
//
// The operations with a `char* out` write "inited=false" before Init. Their texts have no
// terminating zero: `out` is a zeroed buffer of kLBSTextBufferSize bytes. A null `out` does
// nothing.
class IZOTarvelLBSService {
 public:
  // Loads the cached answer, or makes a local one, so that link addresses are at hand when the call
  // returns, and starts the service's thread. True always. A second call does nothing.
  virtual bool Init(const _ZOTarvelLBSSettings& settings) = 0;

  // Asks for a fresh answer. LBS URLs with an IP literal are used when it is of `family`, with
  // kEMAddressFamilyAny all of them. Before Init nothing happens. Forced: at once, even when a
  // request is under way. Unforced calls are gathered: the third one, or 1200 ms after the first,
  // starts one request, unless one is under way. The outcome reaches the LBSCallback, but see
  // there.
  virtual void Update(EMAddressFamily family, bool force) = 0;

  // Replace a callback. Null for none. A call of the old one may still be under way when this
  // returns; see IZOTarvelObject::ReleaseLBSService.
  virtual void SetLBSCallback(LBSCallback callback, void* user) = 0;
  virtual void SetAccIDGetter(AccIDGetter getter, void* user) = 0;
  virtual void SetRequestErrorCollector(RequestErrorCollector collector, void* user) = 0;

  // The active answer. With `no_wait` false the call first waits for the update under way. The wait
  // ends when that update's request has ended: with a fresh answer, which is active then, with a
  // failure, or cancelled. Of several updates at a time, the first to end ends the wait. There is
  // no time limit, but an exit ends the wait too. Not waited for are a call of Update that is still
  // being gathered, an update that has no URL to ask (see LBSCallback), and the LBSCallback itself.
  // On one of the library's own threads the call never waits.
  virtual void GetLBSResponse(bool no_wait, char* out) = 0;

  // The next address of the list for a connection try. In: `family` says which kind is wished for.
  // Out: the host in `addr` (a zeroed buffer of kLinkAddressBufferSize bytes), an IPv6 address in
  // its brackets; the port (0 to 65535; 0 when the address names none that can be); and in `family`
  // the kind of the host, kEMAddressFamilyAny for a name. Any of the three may be null. When the
  // list is used up, a default is handed out and a fresh list asked for. False only before Init;
  // then nothing is written.
  virtual bool GetLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) = 0;

  // Texts of the active answer: the object-storage download URL, the JSON lists of download URLs
  // and of storage servers, the answer's name and its description.
  virtual void GetZEBDL(char* out) = 0;
  virtual void GetZEBDLList(char* out) = 0;
  virtual void GetZEBList(char* out) = 0;
  virtual void GetName(char* out) = 0;
  virtual void GetDesc(char* out) = 0;

  // How many link addresses the active answer holds; -1 before Init.
  virtual std::int32_t GetLinkCount() = 0;

  // The address that the next GetLinkAddress for any family would hand out, without moving on.
  // Buffers as there; `family` is only written. False, with nothing written, before Init and when
  // the list is used up.
  virtual bool GetCurrentLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) = 0;

  // Tells that a connection to this address stands. `host` is NUL-terminated, `port` 1 to 65535.
  // Changes nothing today: the rotation goes on.
  virtual void OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) = 0;

  // Fills `info`, owned by the caller; before Init with the switch off. Null does nothing.
  virtual void GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) = 0;

 protected:
  virtual ~IZOTarvelLBSService() = default;  // The client never frees it.
};

// --- Exception records ---

// One failed sub request.
struct TarvelExceptionExtension {
  std::int32_t operation_type = 0;  // 0 for a GET, 1 for other requests.
  std::string target;               // What it was aimed at, such as a URL.
  std::int32_t code = 0;            // Its error or status code.
  std::string description;          // A JSON text with the details.
  std::string context;              // What else is known.
};

// One exception record. Owned by the library and good during the callback; copy what is to stay.
struct TarvelExceptionData {
  std::string user_info;               // About the user; empty today.
  std::string reserved_info;           // Always empty.
  std::string process_id;              // Trace id of the request.
  std::int32_t action = 0;             // Kind of record; 1 today.
  std::int64_t duration = 0;           // Milliseconds that the sub request took.
  std::int64_t start_time = 0;         // When it ended, in milliseconds since 1970.
  std::int32_t state = 0;              // 1 today.
  std::int32_t exception_service = 0;  // Who asked: 1 the LBS service, 5 HTTPDNS, 0 others.
  std::vector<TarvelExceptionExtension> extension;  // The failed sub requests; one today.
};

// Takes over one exception record. On the library's request thread; the next record waits until the
// function returns.
using ExceptionDataReporter = void (*)(const TarvelExceptionData& data);

// Says where exception records go. Records made before are handed over first, in their order. The
// first function stays until the environment goes down; after a new start it must be set again.
// Without an environment nothing happens, and the function isn't remembered. Any thread.
//
// Records are made only when `enable_exception_data_reporting` is on.
TARVEL_API void SetExceptionDataReporter(const ExceptionDataReporter& reporter) noexcept;

// The record as one JSON object, without `user_info` and `reserved_info`; empty when the library is
// being unloaded. Works with and without an environment. Any thread.
TARVEL_API std::string TarvelExceptionDataToJsonString(const TarvelExceptionData& data) noexcept;

// --- Layout of the records ---
//
// Client and library are compiled apart, and each checks here that its records have the one layout.
// Offsets and sizes are in bytes; they hold on 64- and on 32-bit targets.

#define TARVEL_CHECK_LAYOUT(condition, what)                                                \
  static_assert(condition, "tarvel: " what                                                  \
                           " has another layout than in the library. Remove -fpack-struct " \
                           "and whatever else packs or aligns records, such as #pragma pack.")
#define TARVEL_CHECK_FIELD(record, field, offset, size)                                 \
  TARVEL_CHECK_LAYOUT(                                                                  \
      offsetof(record, field) == (offset) && sizeof(decltype(record::field)) == (size), \
      #record "::" #field)
#define TARVEL_CHECK_SIZE(record, size) TARVEL_CHECK_LAYOUT(sizeof(record) == (size), #record)
#if defined(__i386__)  // Options and the age of the compiler change what alignof says here.
#define TARVEL_INT64_ALIGNMENT 4
#else
#define TARVEL_INT64_ALIGNMENT alignof(std::int64_t)
#endif
#define TARVEL_INT64_ALIGNED(offset) \
  (((offset) + TARVEL_INT64_ALIGNMENT - 1) / TARVEL_INT64_ALIGNMENT * TARVEL_INT64_ALIGNMENT)

TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, enable_httpdns, 0, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, only_https_supported, 4, 1);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_type, 5, 32);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_token, 37, 128);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, business_version, 165, 128);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, sv, 296, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, pv, 300, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, client_type, 304, 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, appdata_path, 308, 1024);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, log_path, 1332, 1024);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, custom_log, 2352 + sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, try_http_request_on_netunav,
                   2352 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, single_request_timeout, 2356 + 2 * sizeof(void*),
                   4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, single_request_prefail_timeout,
                   2360 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, http_request_ip_preferred,
                   2364 + 2 * sizeof(void*), 4);
TARVEL_CHECK_FIELD(_ZOTarvelEnvironmentSettings, enable_exception_data_reporting,
                   2368 + 2 * sizeof(void*), 4);
TARVEL_CHECK_SIZE(_ZOTarvelEnvironmentSettings, 2368 + 3 * sizeof(void*));

TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, using_private, 0, 1);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, lbs_main_addr, 1, 512);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, lbs_backup_addrs, 513, 2560);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, default_link, 3073, 128);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, default_link_ipv6, 3201, 128);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, link_list, 3329, 640);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, reserved, 3969, 640);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, addr_family, 4612, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, sreq_timeout_ms, 4616, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, sreq_pred_fail_time_ms, 4620, 4);
TARVEL_CHECK_FIELD(_ZOTarvelLBSSettings, def_lbs_host, 4624, 512);
TARVEL_CHECK_SIZE(_ZOTarvelLBSSettings, 5136);

TARVEL_CHECK_FIELD(RequestErrorRecord, code, 0, 4);
TARVEL_CHECK_FIELD(RequestErrorRecord, url, sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(RequestErrorRecord, headers, 2 * sizeof(void*), sizeof(void*));
TARVEL_CHECK_FIELD(RequestErrorRecord, body, 3 * sizeof(void*), sizeof(void*));
TARVEL_CHECK_SIZE(RequestErrorRecord, 4 * sizeof(void*));

TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, enable, 0, 1);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, host, 1, 512);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, api, 513, 512);
TARVEL_CHECK_FIELD(_ZOTarvelMsgStatInfo, desc, 1025, 128);
TARVEL_CHECK_SIZE(_ZOTarvelMsgStatInfo, 1153);

TARVEL_CHECK_FIELD(TarvelExceptionExtension, operation_type, 0, 4);
TARVEL_CHECK_FIELD(TarvelExceptionExtension, target, sizeof(void*), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionExtension, code, sizeof(void*) + sizeof(std::string), 4);
TARVEL_CHECK_FIELD(TarvelExceptionExtension, description, 2 * sizeof(void*) + sizeof(std::string),
                   sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionExtension, context, 2 * sizeof(void*) + 2 * sizeof(std::string),
                   sizeof(std::string));
TARVEL_CHECK_SIZE(TarvelExceptionExtension, 2 * sizeof(void*) + 3 * sizeof(std::string));

TARVEL_CHECK_FIELD(TarvelExceptionData, user_info, 0, sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, reserved_info, sizeof(std::string), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, process_id, 2 * sizeof(std::string), sizeof(std::string));
TARVEL_CHECK_FIELD(TarvelExceptionData, action, 3 * sizeof(std::string), 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, duration, TARVEL_INT64_ALIGNED(3 * sizeof(std::string) + 4),
                   8);
TARVEL_CHECK_FIELD(TarvelExceptionData, start_time, offsetof(TarvelExceptionData, duration) + 8, 8);
TARVEL_CHECK_FIELD(TarvelExceptionData, state, offsetof(TarvelExceptionData, duration) + 16, 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, exception_service,
                   offsetof(TarvelExceptionData, duration) + 20, 4);
TARVEL_CHECK_FIELD(TarvelExceptionData, extension, offsetof(TarvelExceptionData, duration) + 24,
                   sizeof(std::vector<TarvelExceptionExtension>));
TARVEL_CHECK_SIZE(TarvelExceptionData,
                  TARVEL_INT64_ALIGNED(offsetof(TarvelExceptionData, duration) + 24 +
                                       sizeof(std::vector<TarvelExceptionExtension>)));

#undef TARVEL_INT64_ALIGNED
#undef TARVEL_INT64_ALIGNMENT
#undef TARVEL_CHECK_SIZE
#undef TARVEL_CHECK_FIELD
#undef TARVEL_CHECK_LAYOUT

}  // namespace zo_tarvel

#endif  // TARVEL_TARVEL_H_
