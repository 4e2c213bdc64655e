#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "base/object.h"
#include "base/task_thread.h"
#include "tarvel/environment/environment_config_getter.h"
#include "tarvel/http_agent/logic/multiple_url_http_request.h"
#include "tarvel/http_agent/logic/statistic_item.h"

namespace zo_tarvel {

class MultipleURLHttpRequestHelper;

// The one front through which the library sends logical requests. It publishes itself in the
// configuration, as the function behind InvokeHttpRequest.
//
// Threads: requests come from any thread; all else runs on its work thread, "http_agent_work": the
// helpers with their timers and checks, and the end of every request.
// Ownership: the environment's storage owns it; it owns its work thread. Requests that are under
// way when it stops get no callback.
class HttpAgent : public EnvironmentConfigGetterBase, public zo_base::ZOObjectIMPL {
 public:
  ~HttpAgent() override;

  // Builds and starts its parts, once. Always true.
  bool Init();
  // Stops them. May be called again.
  void Uninit();

  // Whether a request has a chance, as far as the system itself can tell.
  bool IsInternetConnected();

  // Starts `request` on the calling thread, which should be the work thread.
  void InvokeMultipleURLHttpRequest(const MultipleURLHttpRequest& request);

 private:
  // What the slot of a helper's signal takes to the work thread.
  struct Outcome {
    bool stop = false;
    bool success = false;
    std::string headers;
    std::string body;
    MultipleURLHttpRequest request;
    std::list<_StatisticItem> statistic_items;
  };

  void InitOnce();
  void OnHttpRequest(const MultipleURLHttpRequest& request, bool post_to_work_thread);
  void SetTaskPosterOfReporter(std::shared_ptr<zo_base::ITaskPostor> poster);
  // Has `task(HttpAgent&)` run there, unless this has gone by then.
  template <class F>
  void PostToWorkThread(F task);
  static MultipleURLHttpRequestHelper* MakeUnownedHelper();
  void FinishRequest(const Outcome& outcome);

  std::once_flag init_flag_;
  std::shared_ptr<zo_base::TaskThread> work_thread_;
};

}  // namespace zo_tarvel
