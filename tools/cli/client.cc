#include "tools/cli/client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "base/json/json11.h"
#include "tools/cli/own_life.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;

constexpr std::int32_t kFresh = 200;  // Code of an update, and of a sub request, that succeeded.
constexpr std::chrono::seconds kLongestWaitForRecords{4};
constexpr std::chrono::milliseconds kLookForStop{50};
constexpr std::chrono::milliseconds kLookWhetherOver{500};

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

// Not empty when a cached answer is active whose life is not over.
std::string WhyNobodyIsAsked(const ClientOptions& options, const tarvel::Client& client) {
  if (!client.WaitForAnswer(std::chrono::milliseconds(0))) return {};
  const auto report = InspectOwnLife(options);
  const auto left_ms = report.caches.answer.expires_at - report.inspected_at;
  if (report.caches.answer.is_local || left_ms <= 0) return {};
  return "the cached answer is valid for " + std::to_string(left_ms / 1'000) +
         " s more, so no server is asked; --force asks all the same";
}

}  // namespace

Client::Client(const ClientOptions& options, CommandScope& scope, bool force)
    : options_(options),
      force_(force),
      stop_(scope.stop),
      printer_(scope.printer),
      update_fd_(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)),
      own_log_(options) {
  if (update_fd_ < 0) throw std::runtime_error("no descriptor for updates");
  auto settings = ClientSettings(options);
  settings.on_update = [this](const auto& result) { OnUpdate(result); };
  settings.on_attempt = [this](const auto& attempt) { OnAttempt(attempt); };
  settings.on_exception = [this](const auto& record) { OnException(record); };
  if (options.show_log) {
    settings.on_log = [this](const char* record) { printer_.PrintLog(record); };
  }
  std::string error;
  client_ = tarvel::Client::Start(std::move(settings), error);
  if (!client_) throw UsageError(error);
  if (force_) client_->Update(true);
}

Client::~Client() {
  client_.reset();
  close(update_fd_);
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

void Client::At(std::chrono::duration<double> time, std::function<void(tarvel::Client&)> act) {
  acts_.emplace(start_ + std::chrono::duration_cast<Clock::duration>(time), std::move(act));
}

void Client::ActWhenDue() {
  while (!acts_.empty() && acts_.begin()->first <= Clock::now()) {
    const auto act = std::move(acts_.begin()->second);
    acts_.erase(acts_.begin());
    act(*client_);
  }
}

Client::Event Client::Wait(std::chrono::duration<double> limit) {
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  for (;;) {
    ActWhenDue();
    const auto next = acts_.empty() ? end : std::min(end, acts_.begin()->first);
    const Event event = WaitUntil(next);
    if (event != Event::kTimeOut || Clock::now() >= end) return event;
  }
}

Client::Event Client::WaitUntil(Clock::time_point end) {
  pollfd waited[] = {{stop_.fd(), POLLIN, 0}, {update_fd_, POLLIN, 0}};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
  const int limit_ms = static_cast<int>(std::max<std::int64_t>(left, 0));
  if (poll(waited, std::size(waited), limit_ms) <= 0) return Event::kTimeOut;
  if (waited[0].revents != 0) return Event::kStop;
  std::uint64_t one = 0;
  if (read(update_fd_, &one, sizeof one) != sizeof one) return Event::kTimeOut;
  const std::lock_guard lock(mutex_);
  is_fresh_ = updates_.front();
  updates_.pop_front();
  return Event::kUpdate;
}

void Client::AwaitFirstUpdate(std::chrono::duration<double> limit) {
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  std::string why = force_ ? "" : WhyNobodyIsAsked(options_, *client_);
  if (!why.empty()) {
    printer_.Print("cached", why, {});
    return;
  }
  do {
    const std::chrono::duration<double> left = end - Clock::now();
    if (Wait(std::min<std::chrono::duration<double>>(left, kLookWhetherOver)) != Event::kTimeOut)
      return;
    if (!options_.show_log) why = own_log_.WhyNothingComes();
  } while (why.empty() && Clock::now() < end);
  if (why.empty()) why = "no update has ended in this time";
  printer_.Print("timeout", why, {{"reason", why}});
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
