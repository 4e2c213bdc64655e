#include "tools/backend/lab/host.h"

#include <utility>

namespace tarvel_backend {

namespace {

Certificates MakeCertificates(const HostPlan& plan) {
  std::vector<std::string> names = plan.names;
  for (const Address& address : plan.addresses) names.push_back(address.text());
  if (plan.certificate == CertificateKind::kWrongName) names = {"wrong.invalid"};
  return {MakeCertificate(names), MakeCertificate({"wrong.invalid"})};
}

}  // namespace

Host::Host(HostPlan plan, Report& report)
    : plan_(std::move(plan)),
      certificates_(MakeCertificates(plan_)),
      report_(report),
      answers_(plan_.answers) {}

std::string Host::TrustedCertificate() const {
  return plan_.certificate == CertificateKind::kUntrusted ? "" : ToPem(certificates_.right);
}

void Host::Listen() {
  const BackendOwner owner{
      [this] { return GetAnswers(); },
      [this](const EndedRequest& request) { report_.Add(plan_.name, ToText(request)); }};
  for (const Address& address : plan_.addresses) {
    for (const Certificates* const shown :
         {static_cast<const Certificates*>(nullptr), &certificates_}) {
      const auto port = shown == nullptr ? plan_.http : plan_.https;
      if (!port) continue;
      backends_.push_back(std::make_unique<Backend>(owner, shown, address.text(), *port));
    }
  }
}

void Host::Play(const HostEvent& event) {
  {
    zo_base::MutexLock lock(mutex_);
    answers_ = plan_.answers;
    if (event.fault) answers_.SetFaultOfAll(*event.fault);
  }
  if (event.reachability == Reachability::kStopped) {
    backends_.clear();
  } else if (backends_.empty()) {
    Listen();
  }
  const bool is_silent = event.reachability == Reachability::kDropsPackets;
  for (const auto& backend : backends_) backend->SetSilence(is_silent);
}

Answers Host::GetAnswers() const {
  zo_base::MutexLock lock(mutex_);
  return answers_;
}

}  // namespace tarvel_backend
