#pragma once

#include <signal.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/backend/lab/host.h"
#include "tools/backend/lab/isolated_program.h"
#include "tools/backend/lab/name_server.h"
#include "tools/backend/lab/network.h"
#include "tools/backend/lab/plan.h"
#include "tools/backend/lab/report.h"

namespace tarvel_backend {

// Runs a program among the hosts of a plan, and plays the plan's faults.
//
// Threads: the process's main one, which must be its only one; servers have threads of their own.
class Lab {
 public:
  // Moves this process into a private network, where all servers of the plan listen when it
  // returns. Throws std::runtime_error, which tells the user what is missing.
  Lab(Plan plan, const std::vector<std::string>& command);

  // Returns the program's status, as a shell has it. Call it once. Throws std::runtime_error when
  // an event can't be played.
  int Run();

  const Report& report() const { return report_; }

 private:
  using Clock = std::chrono::steady_clock;

  void EnterNetwork();
  int RunUntilEnd();
  // Waits for a signal until the next event. Returns 0 when it is due.
  siginfo_t AwaitSignal() const;
  void PassOn(const siginfo_t& signal);
  // Returns how many have arrived shortly after one another.
  int CountStopSignal();
  // Plays those until `time`, which counts from the program's start.
  void PlayEventsUntil(Clock::duration time);
  void Play(const HostEvent& event);
  void Play(NameServer::State state);
  void Play(const NetworkChange& change);
  void Play(const AllWell& event);
  std::vector<Address> ServerAddresses() const;

  const Plan plan_;
  const std::string command_;  // For the report.

  Report report_;
  sigset_t signals_{};  // Those that the lab waits for.
  std::deque<Host> hosts_;
  std::optional<IsolatedProgram> program_;
  std::optional<Network> network_;
  std::optional<NameServer> name_server_;
  Clock::time_point start_;
  std::size_t next_event_ = 0;  // In the timeline.
  Clock::time_point last_stop_signal_;
  int stop_signals_ = 0;  // See CountStopSignal.
};

}  // namespace tarvel_backend
