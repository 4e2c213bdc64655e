#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <memory>

#include "base/lock/recursive_mutex.h"
#include "base/lock/resettable_once.h"
#include "tarvel/environment/configuration/environment_config_getter.h"

namespace zo_tarvel {

// The object behind an id: passes the client's notices on to the configuration and hosts the LBS
// service.
//
// Threads: any; the environment manager calls Init, Stop and Release on the thread of the start or
// exit. Ownership: the table of objects owns it; it owns the service.
class ZOTarvelObjectImpl final : public IZOTarvelObject,
                                 public EnvironmentConfigGetterBase,
                                 public std::enable_shared_from_this<ZOTarvelObjectImpl> {
 public:
  explicit ZOTarvelObjectImpl(std::int32_t id) : id_(id) {}
  ~ZOTarvelObjectImpl() override { Release(); }

  void NotifyNetworkChanged(zo_net::AddressFamily family) override;
  IZOTarvelLBSService* GetLBSService() override;
  void ReleaseLBSService() override;
  void SetBusinessToken(const char* token) override;

  std::int32_t id() const { return id_; }
  void Init() {}  // Carried for the interface: a hook for services that come with the object.
  // Ends the service's thread; the service stays in place.
  void Stop();
  // Ends and frees the service, if there is one; the object makes no other.
  void Release();
  // Null without one.
  std::shared_ptr<IZOTarvelLBSService> LBSService();

 private:
  void CreateLBSService();
  std::shared_ptr<IZOTarvelLBSService> TakeLBSService();

  const std::int32_t id_;
  // Never held while a service is stopped: its thread may be waiting for this lock.
  zo_base::_thread_recursive_mutex lock_;
  std::shared_ptr<IZOTarvelLBSService> lbs_service_ ZO_GUARDED_BY(lock_);
  zo_base::ResettableOnce lbs_service_once_;  // Guards the creation.
};

}  // namespace zo_tarvel
