#pragma once

#include "business/tarvel_lbs/lbs_updater.h"
#include "tarvel/environment/business_service.h"

namespace zo_tarvel {

// The client's front of the LBS service: calls from the log function, calls in a forked child, and
// the client's buffers are its concern. The work is done by its two parts and on its thread, "lbs
// service".
//
// Threads: the interface from any. Ownership: the hosting object owns it and stops its thread.
class ZOTarvelLBSServiceImpl final : public IZOTarvelLBSService,
                                     public IBusinessService,
                                     public virtual zo_base::TaskThread {
 public:
  explicit ZOTarvelLBSServiceImpl(zo_base::WallClock wall_clock = zo_base::WallClockMilliseconds);

  bool Init(const _ZOTarvelLBSSettings& record) override;
  void Update(EMAddressFamily family, bool force) override;
  void SetLBSCallback(LBSCallback callback, void* user) override;
  void SetAccIDGetter(AccIDGetter getter, void* user) override;
  void SetRequestErrorCollector(RequestErrorCollector collector, void* user) override;
  void GetLBSResponse(bool no_wait, char* out) override;
  bool GetLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) override;
  void GetZEBDL(char* out) override;
  void GetZEBDLList(char* out) override;
  void GetZEBList(char* out) override;
  using TaskThread::GetName;
  void GetName(char* out) override;
  void GetDesc(char* out) override;
  std::int32_t GetLinkCount() override;
  bool GetCurrentLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) override;
  void OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) override;
  void GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) override;

  // Ends the thread and all calls of the client's functions: gathered requests for an update are
  // dropped, and a look at an answer is waited for, except on the library's own threads.
  void Stop() override;

 private:
  void PrepInit(const _ZOTarvelLBSSettings& record);
  bool IsInitd(const char* operation) const;
  void CopyText(const char* operation, const char* key, char* out) const;

  zo_base::_thread_recursive_mutex init_lock;  // Held for the length of Init.
  LBSSettings settings;
  ActiveAnswer answer;
  LBSUpdater updater;
};

}  // namespace zo_tarvel
