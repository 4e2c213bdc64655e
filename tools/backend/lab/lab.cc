#include "tools/backend/lab/lab.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <set>
#include <utility>

#include "base/text/strings.h"
#include "tools/backend/ended_request.h"
#include "tools/backend/lab/private_network.h"

namespace tarvel_backend {

namespace {

constexpr char kTrustStore[] = "/etc/ssl/certs/ca-certificates.crt";
constexpr char kServiceSwitch[] = "/etc/nsswitch.conf";

// A program may ignore the first two, or use them for its own ends from time to time.
constexpr int kKillingSignal = 3;
constexpr std::chrono::seconds kStopPause{2};

bool IsStopSignal(int signal) {
  return signal == SIGINT || signal == SIGTERM || signal == SIGHUP || signal == SIGQUIT;
}

// Blocks them in the threads created later too. Returns the former mask.
sigset_t BlockSignals(sigset_t& signals) {
  sigemptyset(&signals);
  for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2}) {
    sigaddset(&signals, signal);
  }
  sigset_t former;
  pthread_sigmask(SIG_BLOCK, &signals, &former);
  return former;
}

}  // namespace

Lab::Lab(Plan plan, const std::vector<std::string>& command)
    : plan_(std::move(plan)), command_(Printable(zo_base::Join(command, " "))) {
  for (const HostPlan& host : plan_.hosts) hosts_.emplace_back(host, report_);
  const sigset_t former = BlockSignals(signals_);
  EnterNetwork();
  program_.emplace(command, former);
  signal(SIGPIPE, SIG_IGN);  // After the program's process has been made.
  network_.emplace(program_->process(), program_->network(), ServerAddresses());
  for (Host& host : hosts_) host.Listen();
  const NameServerPlan& names = plan_.name_server;
  name_server_.emplace(names.address, names.names, names.poisoned, report_);
}

void Lab::EnterNetwork() {
  std::vector<ReplacedFile> files{
      {"/etc/resolv.conf", "nameserver " + plan_.name_server.address.text() + '\n'}};
  if (access(kTrustStore, F_OK) == 0) {
    std::string trusted;
    for (const Host& host : hosts_) trusted += host.TrustedCertificate();
    files.push_back({kTrustStore, trusted});
  }
  // A service of the system would be asked over its socket, which is no part of the network.
  if (access(kServiceSwitch, F_OK) == 0) {
    files.push_back({kServiceSwitch, "passwd: files\ngroup: files\nhosts: files dns\n"});
  }
  EnterPrivateNetwork(files);
}

std::vector<Address> Lab::ServerAddresses() const {
  std::set<Address> addresses{plan_.name_server.address};
  for (const HostPlan& host : plan_.hosts) {
    addresses.insert(host.addresses.begin(), host.addresses.end());
  }
  return {addresses.begin(), addresses.end()};
}

int Lab::Run() {
  PlayEventsUntil(Clock::duration::zero());
  start_ = Clock::now();
  report_.Start();
  report_.AddAndShow("program", "starts: " + command_);
  program_->Start();
  const int status = RunUntilEnd();
  report_.AddAndShow("program", "has ended, status " + std::to_string(status));
  hosts_.clear();  // Hanging requests end, and reach the report.
  name_server_.reset();
  return status;
}

int Lab::RunUntilEnd() {
  for (;;) {
    const siginfo_t signal = AwaitSignal();
    if (signal.si_signo == SIGCHLD) {
      if (const auto status = program_->TakeStatus()) return *status;
    } else if (signal.si_signo != 0) {
      PassOn(signal);
    }
    PlayEventsUntil(Clock::now() - start_);
  }
}

siginfo_t Lab::AwaitSignal() const {
  siginfo_t signal{};
  if (next_event_ == plan_.timeline.size()) {
    sigwaitinfo(&signals_, &signal);
    return signal;
  }
  const auto left =
      std::max(Clock::duration::zero(), start_ + plan_.timeline[next_event_].at - Clock::now());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const std::chrono::nanoseconds rest = left - seconds;
  const timespec limit{.tv_sec = static_cast<std::time_t>(seconds.count()),
                       .tv_nsec = static_cast<long>(rest.count())};
  if (sigtimedwait(&signals_, &signal, &limit) < 0) return {};
  return signal;
}

void Lab::PassOn(const siginfo_t& signal) {
  if (IsStopSignal(signal.si_signo) && CountStopSignal() == kKillingSignal) {
    report_.AddAndShow("lab", "kills the program after three signals");
    program_->Kill();
  } else if (signal.si_code != SI_KERNEL) {  // The program gets those of a terminal itself.
    program_->Signal(signal.si_signo);
  }
}

int Lab::CountStopSignal() {
  const auto last = std::exchange(last_stop_signal_, Clock::now());
  stop_signals_ = last_stop_signal_ - last < kStopPause ? stop_signals_ + 1 : 1;
  return stop_signals_;
}

void Lab::PlayEventsUntil(Clock::duration time) {
  for (; next_event_ < plan_.timeline.size(); ++next_event_) {
    const Event& event = plan_.timeline[next_event_];
    if (event.at > time) return;
    std::visit([this](const auto& what) { Play(what); }, event.what);
  }
}

void Lab::Play(const HostEvent& event) {
  for (Host& host : hosts_) {
    if (host.plan().name != event.host) continue;
    host.Play(event);
    report_.AddAndShow(event.host, ToText(event));
  }
}

void Lab::Play(NameServer::State state) {
  name_server_->SetState(state);
  static constexpr std::array kTexts{"is well", "is silent", "refuses", "is poisoned"};
  report_.AddAndShow("name server", kTexts[static_cast<std::size_t>(state)]);
}

void Lab::Play(const NetworkChange& change) {
  network_->Change();
  report_.AddAndShow("network", "changes: the program has " + network_->AddressesOfProgram());
  if (change.signal) program_->Signal(*change.signal);
}

void Lab::Play(const AllWell&) {
  for (Host& host : hosts_) host.Play({host.plan().name, Reachability::kWell, {}});
  name_server_->SetState(NameServer::State::kWell);
  report_.AddAndShow("all", "is well");
}

}  // namespace tarvel_backend
