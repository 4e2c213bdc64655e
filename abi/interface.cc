// Everything of the flat header that a compiled client depends on, beside the names of the five
// functions. scripts/check-abi.sh reads it out of this file's debug information.
#include <tarvel/tarvel.h>

namespace zo_tarvel {

TARVEL_API void Interface(IZOTarvelObject& object, IZOTarvelLBSService& service,
                          const _ZOTarvelEnvironmentSettings&, const _ZOTarvelLBSSettings&,
                          const _ZOTarvelMsgStatInfo&, const TarvelExceptionData&, LBSCallback,
                          AccIDGetter, RequestErrorCollector, ExceptionDataReporter) {
  object.GetLBSService();
  service.GetLinkCount();
}

}  // namespace zo_tarvel
