#include "tools/cli/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <iterator>
#include <stdexcept>

#include "base/json/json11.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;

constexpr std::int32_t kFresh = 200;  // Code of an update, and of a sub request, that succeeded.
constexpr std::chrono::seconds kLongestWaitForRecords{4};
constexpr std::chrono::milliseconds kLookForStop{50};

// OnException has no user pointer.
std::atomic<Client*> the_client{nullptr};

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

std::string TextOrEmpty(const char* text) { return text == nullptr ? "" : text; }

Json ParsedOrText(const std::string& text) {
  std::string error;
  Json parsed = Json::parse(text, error);
  return error.empty() ? parsed : Json(text);
}

// One line about a failure, for people.
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

Client::Client(const ClientOptions& options, CommandScope& scope)
    : stop_(scope.stop),
      printer_(scope.printer),
      update_fd_(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {
  if (update_fd_ < 0) throw std::runtime_error("no descriptor for updates");
  const auto lbs_settings = LBSSettings(options);
  id_ = zo_tarvel::StartTarvelEnvironment(EnvironmentSettings(options));
  zo_tarvel::IZOTarvelObject* const object = zo_tarvel::GetTarvelObject(id_);
  if (object == nullptr) throw std::runtime_error("the environment can't be started");
  the_client = this;
  zo_tarvel::SetExceptionDataReporter(OnException);
  service_ = object->GetLBSService();
  service_->SetLBSCallback(OnAnswer, this);
  service_->SetRequestErrorCollector(OnAttempt, this);
  service_->Init(lbs_settings);
}

Client::~Client() {
  zo_tarvel::ExitTarvelEnvironment(id_);
  the_client = nullptr;
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

void Client::PrintLinks(int count) {
  const int wanted = count > 0 ? count : service_->GetLinkCount();
  for (int i = 0; i < wanted && !stop_.HaveCome(); ++i) PrintNextLink();
}

Client::Event Client::Wait(std::chrono::duration<double> limit) {
  pollfd waited[] = {{stop_.fd(), POLLIN, 0}, {update_fd_, POLLIN, 0}};
  const auto limit_ms = std::chrono::duration_cast<std::chrono::milliseconds>(limit).count();
  if (poll(waited, std::size(waited), static_cast<int>(limit_ms)) <= 0) return Event::kTimeOut;
  if (waited[0].revents != 0) return Event::kStop;
  std::uint64_t one = 0;
  if (read(update_fd_, &one, sizeof one) != sizeof one) return Event::kTimeOut;
  const std::lock_guard lock(mutex_);
  is_fresh_ = codes_.front() == kFresh;
  codes_.pop_front();
  return Event::kUpdate;
}

void Client::AwaitFirstUpdate(std::chrono::duration<double> limit) {
  if (Wait(limit) != Event::kTimeOut) return;
  printer_.Print("timeout",
                 "no update has ended: the active answer still lives, nobody could be asked, or "
                 "nobody answers",
                 {});
}

void Client::AwaitExceptionRecords() {
  const auto end = std::chrono::steady_clock::now() + kLongestWaitForRecords;
  std::unique_lock lock(mutex_);
  while (records_ < failures_.size() && std::chrono::steady_clock::now() < end &&
         !stop_.HaveCome()) {
    recorded_.wait_for(lock, kLookForStop);
  }
}

// On the service's thread.
void Client::OnAnswer(std::int32_t code, const char* response, void* client) {
  auto& self = *static_cast<Client*>(client);
  const Json answer = ParsedOrText(response);
  const std::string& name = answer["common"]["name"].string_value();
  std::string text = code == kFresh ? "fresh" : "none; the one from before stays active";
  if (code == kFresh && !name.empty()) text += ", \"" + name + '"';
  self.printer_.Print("answer", text, {{"code", code}, {"response", answer}});
  const std::lock_guard lock(self.mutex_);
  self.codes_.push_back(code);
  eventfd_write(self.update_fd_, 1);
}

// On the library's request thread.
void Client::OnAttempt(void* client, const zo_tarvel::RequestErrorRecord* record) {
  auto& self = *static_cast<Client*>(client);
  const std::string url = TextOrEmpty(record->url);
  std::string text = WithoutQuery(url) + "  " + std::to_string(record->code);
  if (record->code == 0) text += "  " + TextOrEmpty(record->body);
  self.printer_.Print("tried", text,
                      {{"url", url},
                       {"code", record->code},
                       {"headers", TextOrEmpty(record->headers)},
                       {"body", TextOrEmpty(record->body)}});
  const std::lock_guard lock(self.mutex_);
  if (record->code != kFresh) self.failures_.emplace(record->code, url);
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
