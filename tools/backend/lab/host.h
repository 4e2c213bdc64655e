#pragma once

#include <memory>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/lock/thread_annotations.h"
#include "tools/backend/backend.h"
#include "tools/backend/lab/plan.h"
#include "tools/backend/lab/report.h"

namespace tarvel_backend {

// A host of the lab: its listeners and their fault.
//
// Threads: used on the owner's; the threads of its listeners read the answers. Ownership: owns the
// listeners; `report` outlives it.
class Host {
 public:
  // Makes its certificates, with new keys. Does not listen yet.
  Host(HostPlan plan, Report& report);

  const HostPlan& plan() const { return plan_; }
  // The certificate for the trust store of clients; empty when it is untrusted.
  std::string TrustedCertificate() const;

  // Throws std::runtime_error when an address is not available, as Play.
  void Listen();
  // Ends the earlier fault.
  void Play(const HostEvent& event) ZO_EXCLUDES(mutex_);

 private:
  Answers GetAnswers() const ZO_EXCLUDES(mutex_);

  const HostPlan plan_;
  const Certificates certificates_;
  Report& report_;

  mutable zo_base::_thread_recursive_mutex mutex_;
  Answers answers_ ZO_GUARDED_BY(mutex_);

  std::vector<std::unique_ptr<Backend>> backends_;  // Not locked: of the owner's thread.
};

}  // namespace tarvel_backend
