#include "tarvel/environment/tarvel_object_impl.h"

#include <string>
#include <utility>

#include "base/process/forked_child.h"
#include "base/thread/base_thread.h"
#include "base/thread/library_call.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

using zo_base::IsPutOff;
using zo_base::LibraryCall;
using zo_base::MutexLock;

zo_base::IThread* ThreadOf(const std::shared_ptr<IZOTarvelLBSService>& service) {
  return dynamic_cast<zo_base::IThread*>(service.get());
}

void EndService(const std::shared_ptr<IZOTarvelLBSService>& service) {
  if (zo_base::IThread* thread = ThreadOf(service)) thread->Stop();
}

}  // namespace

void ZOTarvelObjectImpl::NotifyNetworkChanged(zo_net::AddressFamily family) {
  const LibraryCall call;
  if (IsPutOff(*this, [family](auto& self) { self.NotifyNetworkChanged(family); })) return;
  if (const auto config = GetEnvironmentConfig()) config->SetAddressFamily(family, true);
}

void ZOTarvelObjectImpl::SetBusinessToken(const char* token) {
  const LibraryCall call;
  const std::string text = token == nullptr ? "" : token;
  if (IsPutOff(*this, [text](auto& self) { self.SetBusinessToken(text.c_str()); })) return;
  if (const auto config = GetEnvironmentConfig()) config->SetBusinessToken(text);
}

IZOTarvelLBSService* ZOTarvelObjectImpl::GetLBSService() {
  const LibraryCall call;
  if (zo_base::InForkedChild() || GetLBSServiceFactory() == nullptr) return nullptr;
  lbs_service_once_.Call([this] { CreateLBSService(); });
  return LBSService().get();
}

std::shared_ptr<IZOTarvelLBSService> ZOTarvelObjectImpl::LBSService() {
  MutexLock lock(lock_);
  return lbs_service_;
}

void ZOTarvelObjectImpl::CreateLBSService() {
  MutexLock lock(lock_);
  if (lbs_service_) return;
  lbs_service_ = GetLBSServiceFactory()();
  auto* getter = dynamic_cast<IEnvironmentConfigGetter*>(lbs_service_.get());
  if (getter) getter->SetEnvironmentConfig(GetConfig());
}

void ZOTarvelObjectImpl::Stop() {
  const auto service = LBSService();
  zo_base::IThread* thread = ThreadOf(service);
  if (thread && thread->IsRunning()) thread->Stop();
}

std::shared_ptr<IZOTarvelLBSService> ZOTarvelObjectImpl::TakeLBSService() {
  MutexLock lock(lock_);
  return std::exchange(lbs_service_, nullptr);
}

// TakeLBSService() must be the last access to `this`: once the service is gone, another thread may
// destroy this object.

void ZOTarvelObjectImpl::Release() { EndService(TakeLBSService()); }

void ZOTarvelObjectImpl::ReleaseLBSService() {
  const LibraryCall call;
  if (IsPutOff(*this, [](auto& self) { self.ReleaseLBSService(); })) return;
  lbs_service_once_.Reset();
  EndService(TakeLBSService());
}

}  // namespace zo_tarvel
