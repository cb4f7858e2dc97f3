#include <NODOCore/presentation/SetupMenuSignals.h>

namespace nodo {

bool SetupMenuSignals::helperIsOperational() const {
  if (helperIsReady) {
    return true;
  }
  return helperNeedsUpdate && !helperNeedsRepair && !helperNeedsApproval && !helperNeedsInstall;
}

bool SetupMenuSignals::isSetupComplete() const {
  return helperIsOperational() && hooksAreReady && !hooksNeedUpdate;
}

}  // namespace nodo
