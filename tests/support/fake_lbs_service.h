#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <memory>

#include "base/thread/task_thread.h"
#include "tarvel/environment/business_service.h"
#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {

// A hosted service that is a task thread like the real one. Tests post to its thread.
class FakeLBSService final : public IZOTarvelLBSService,
                             public IBusinessService,
                             public virtual zo_base::TaskThread {
 public:
  FakeLBSService() : TaskThread("lbs service") {}

  // Makes every object host this kind of service.
  static void Install() {
    SetLBSServiceFactory([]() -> std::shared_ptr<IZOTarvelLBSService> {
      return std::make_shared<FakeLBSService>();
    });
  }
  // The service of the object of id 1, started.
  static FakeLBSService* StartOne() {
    auto* service = dynamic_cast<FakeLBSService*>(GetTarvelObject(1)->GetLBSService());
    if (service) service->Init({});
    return service;
  }

  bool Init(const _ZOTarvelLBSSettings&) override {
    const auto nothing = [] {};
    PostLoopTask(1, nothing, -1);  // A stop always meets a task.
    Start();
    return true;
  }
  void Update(EMAddressFamily, bool) override {}
  void SetLBSCallback(LBSCallback, void*) override {}
  void SetAccIDGetter(AccIDGetter, void*) override {}
  void SetRequestErrorCollector(RequestErrorCollector, void*) override {}
  void GetLBSResponse(bool, char*) override {}
  bool GetLinkAddress(char*, std::int32_t*, EMAddressFamily*) override { return false; }
  void GetZEBDL(char*) override {}
  void GetZEBDLList(char*) override {}
  void GetZEBList(char*) override {}
  using TaskThread::GetName;
  void GetName(char*) override {}
  void GetDesc(char*) override {}
  std::int32_t GetLinkCount() override { return -1; }
  bool GetCurrentLinkAddress(char*, std::int32_t*, EMAddressFamily*) override { return false; }
  void OnCurrentLinkConnectSucceed(const char*, std::int32_t) override {}
  void GetMsgStatInfo(_ZOTarvelMsgStatInfo*) override {}
};

}  // namespace zo_tarvel
