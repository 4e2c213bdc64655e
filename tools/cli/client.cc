#include "tools/cli/client.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "base/json11.h"
#include "network/curl_requestor.h"
#include "tarvel/environment/environment_config.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;

constexpr std::chrono::seconds kLongestWaitForRecords{4};

// Exception records come without a word of whose they are.
std::atomic<Client*> the_client{nullptr};

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

const char* NameOf(zo_tarvel::EMAddressFamily family) {
  switch (family) {
    case zo_tarvel::kEMAddressFamilyIPv4:
      return "IPv4";
    case zo_tarvel::kEMAddressFamilyIPv6:
      return "IPv6";
    default:
      return "name";
  }
}

std::string WithoutQuery(const std::string& url) { return url.substr(0, url.find('?')); }

std::string TextOf(const char* text) { return text == nullptr ? "" : text; }

Json ParsedOrText(const std::string& text) {
  std::string error;
  Json parsed = Json::parse(text, error);
  return error.empty() ? parsed : Json(text);
}

// What a record says of its failure, for people.
std::string Describe(const zo_tarvel::TarvelExceptionExtension& failure) {
  const Json details = ParsedOrText(failure.description);
  std::string text = WithoutQuery(failure.target) + "  " + std::to_string(failure.code);
  const std::string& error = details["error_message"].string_value();
  const std::string& body = details["response_body"].string_value();
  if (!error.empty()) text += "  " + error;
  if (failure.code == 0 && !body.empty()) text += "  " + body;
  const std::string& saved_by = details["corr_info"]["corr_url"].string_value();
  return text + (saved_by.empty() ? "  not corrected" : "  corrected by " + WithoutQuery(saved_by));
}

}  // namespace

void BlockStopSignals() {
  const sigset_t signals = StopSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

DataDirectory::DataDirectory(ClientOptions& options) {
  if (!options.data.empty()) return;
  std::string name = std::filesystem::temp_directory_path() / "tarvel-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("can't make a directory " + name);
  options.data = own_ = name;
}

DataDirectory::~DataDirectory() {
  std::error_code ignored;
  if (!own_.empty()) std::filesystem::remove_all(own_, ignored);
}

void PrepareHttpDNS(const ClientOptions& options) {
  if (!options.trust_store.empty()) WQBASE::network::TrustAuthoritiesOf(options.trust_store);
  if (options.httpdns_cache.empty()) return;
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  const std::string directory = config->appdata_path() + "http_dns/";
  std::filesystem::create_directories(directory);
  std::filesystem::copy_file(options.httpdns_cache, directory + "http_server_cache.data",
                             std::filesystem::copy_options::overwrite_existing);
}

Client::Client(const ClientOptions& options, Printer& printer) : printer_(printer) {
  const auto environment_settings = EnvironmentSettings(options);
  const auto lbs_settings = LBSSettings(options);
  const sigset_t signals = StopSignals();
  stop_fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
  update_fd_ = eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE);
  the_client = this;
  id_ = zo_tarvel::StartTarvelEnvironment(environment_settings);
  zo_tarvel::IZOTarvelObject* const object = zo_tarvel::GetTarvelObject(id_);
  if (object == nullptr) throw std::runtime_error("the environment can't be started");
  zo_tarvel::SetExceptionDataReporter(OnException);
  service_ = object->GetLBSService();
  service_->SetLBSCallback(OnAnswer, this);
  service_->SetRequestErrorCollector(OnAttempt, this);
  service_->Init(lbs_settings);
}

Client::~Client() {
  zo_tarvel::ExitTarvelEnvironment(id_);
  the_client = nullptr;
  close(stop_fd_);
  close(update_fd_);
  printer_.Print("exit", "all threads have ended", {});
}

void Client::PrintNextLink() {
  char host[zo_tarvel::kLinkAddressBufferSize] = {};
  std::int32_t port = 0;
  zo_tarvel::EMAddressFamily family = zo_tarvel::kEMAddressFamilyAny;
  if (!service_->GetLinkAddress(host, &port, &family)) return;
  const std::string text = host;
  printer_.Print("link", text + ':' + std::to_string(port) + "  " + NameOf(family),
                 {{"host", text}, {"port", port}, {"kind", NameOf(family)}});
}

Client::Event Client::Wait(std::chrono::duration<double> limit) {
  pollfd waited[] = {{stop_fd_, POLLIN, 0}, {update_fd_, POLLIN, 0}};
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const std::chrono::duration<double, std::milli> left = end - std::chrono::steady_clock::now();
    const int ready = poll(waited, std::size(waited), std::max(0, static_cast<int>(left.count())));
    if (ready < 0) continue;  // A signal that ends nothing.
    if (ready == 0) return Event::kTimeOut;
    if (waited[0].revents != 0) return Event::kStop;
    std::uint64_t one = 0;
    if (read(update_fd_, &one, sizeof one) == sizeof one) {
      is_fresh_ = last_code_ == 200;
      return Event::kUpdate;
    }
  }
}

void Client::AwaitExceptionRecords() {
  std::unique_lock lock(mutex_);
  recorded_.wait_for(lock, kLongestWaitForRecords, [this] { return records_ >= failures_.size(); });
}

// On the service's thread.
void Client::OnAnswer(std::int32_t code, const char* response, void* client) {
  auto& self = *static_cast<Client*>(client);
  const Json answer = ParsedOrText(response);
  const std::string& name = answer["common"]["name"].string_value();
  std::string text = code == 200 ? "fresh" : "none; the one from before stays active";
  if (code == 200 && !name.empty()) text += ", \"" + name + '"';
  self.printer_.Print("answer", text, {{"code", code}, {"response", answer}});
  self.last_code_ = code;
  const std::uint64_t one = 1;
  if (write(self.update_fd_, &one, sizeof one) < 0) std::abort();  // Can't be.
}

// On the library's request thread.
void Client::OnAttempt(void* client, const zo_tarvel::RequestErrorRecord* record) {
  auto& self = *static_cast<Client*>(client);
  const std::string url = TextOf(record->url);
  std::string text = WithoutQuery(url) + "  " + std::to_string(record->code);
  if (record->code == 0) text += "  " + TextOf(record->body);
  self.printer_.Print("tried", text,
                      {{"url", url},
                       {"code", record->code},
                       {"headers", TextOf(record->headers)},
                       {"body", TextOf(record->body)}});
  const std::lock_guard lock(self.mutex_);
  if (record->code != 200) self.failures_.emplace(record->code, url);
}

// On the library's request thread.
void Client::OnException(const zo_tarvel::TarvelExceptionData& data) {
  Client& self = *the_client;
  for (const auto& failure : data.extension) {
    self.printer_.Print(
        "exception", Describe(failure),
        {{"record", ParsedOrText(zo_tarvel::TarvelExceptionDataToJsonString(data))}});
  }
  constexpr std::int32_t kOfLBS = 1;
  const std::lock_guard lock(self.mutex_);
  if (data.exception_service == kOfLBS) ++self.records_;
  self.recorded_.notify_all();
}

}  // namespace tarvel_cli
