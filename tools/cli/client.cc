#include "tools/cli/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <iterator>
#include <stdexcept>

#include "base/json/json11.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;

constexpr std::int32_t kFresh = 200;  // Code of an update, and of a sub request, that succeeded.
constexpr std::chrono::seconds kLongestWaitForRecords{4};
constexpr std::chrono::milliseconds kLookForStop{50};

const char* NameOf(tarvel::Family family) {
  switch (family) {
    case tarvel::Family::kIPv4:
      return "IPv4";
    case tarvel::Family::kIPv6:
      return "IPv6";
    default:
      return "name";
  }
}

std::string WithoutQuery(const std::string& url) { return url.substr(0, url.find('?')); }

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
  auto settings = ClientSettings(options);
  settings.on_update = [this](const auto& result) { OnUpdate(result); };
  settings.on_attempt = [this](const auto& attempt) { OnAttempt(attempt); };
  settings.on_exception = [this](const auto& record) { OnException(record); };
  std::string error;
  client_ = tarvel::Client::Start(std::move(settings), error);
  if (!client_) throw UsageError(error);
}

Client::~Client() {
  client_.reset();
  close(update_fd_);
  printer_.Print("exit", "all threads have ended", {});
}

void Client::PrintNextLink() {
  const auto link = client_->NextLinkAddress();
  if (!link) return;
  printer_.Print("link", link->ToString() + "  " + NameOf(link->family),
                 {{"host", link->host}, {"port", link->port}, {"kind", NameOf(link->family)}});
}

void Client::PrintLinks(int count) {
  const int wanted = count > 0 ? count : client_->LinkCount();
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
  is_fresh_ = updates_.front();
  updates_.pop_front();
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
void Client::OnUpdate(const tarvel::UpdateResult& result) {
  const Json answer = ParsedOrText(result.answer);
  const std::string& name = answer["common"]["name"].string_value();
  std::string text = result.fresh ? "fresh" : "none; the one from before stays active";
  if (result.fresh && !name.empty()) text += ", \"" + name + '"';
  printer_.Print("answer", text, {{"code", result.fresh ? kFresh : 0}, {"response", answer}});
  const std::lock_guard lock(mutex_);
  updates_.push_back(result.fresh);
  eventfd_write(update_fd_, 1);
}

// On the library's request thread.
void Client::OnAttempt(const tarvel::Attempt& attempt) {
  std::string text = WithoutQuery(attempt.url) + "  " + std::to_string(attempt.status);
  if (attempt.status == 0) text += "  " + attempt.body;
  printer_.Print("tried", text,
                 {{"url", attempt.url},
                  {"code", attempt.status},
                  {"headers", attempt.headers},
                  {"body", attempt.body}});
  const std::lock_guard lock(mutex_);
  if (attempt.status != kFresh) failures_.emplace(attempt.status, attempt.url);
}

// On the library's request thread.
void Client::OnException(const tarvel::ExceptionRecord& record) {
  for (const auto& failure : record.extension) {
    printer_.Print("exception", Describe(failure),
                   {{"record", ParsedOrText(tarvel::ToJson(record))}});
  }
  constexpr std::int32_t kOfLBS = 1;
  const std::lock_guard lock(mutex_);
  if (record.exception_service == kOfLBS) ++records_;
  recorded_.notify_all();
}

}  // namespace tarvel_cli
