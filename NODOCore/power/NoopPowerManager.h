#pragma once

#include <NODOCore/power/PowerManaging.h>

namespace nodo {

/// Does nothing and reports dry runs without a command: for simulations and previews.
class NoopPowerManager : public PowerManaging {
 public:
  PowerOperationResult setSleepDisabled(bool disabled) override;
};

}  // namespace nodo
