#include <platform/macos/ProcessInfo.h>

#import <Foundation/Foundation.h>

namespace nodo {
namespace {

std::optional<ThermalPressure> pressureOf(NSProcessInfoThermalState state) {
  switch (state) {
    case NSProcessInfoThermalStateNominal:
      return ThermalPressure::nominal;
    case NSProcessInfoThermalStateFair:
      return ThermalPressure::fair;
    case NSProcessInfoThermalStateSerious:
      return ThermalPressure::serious;
    case NSProcessInfoThermalStateCritical:
      return ThermalPressure::critical;
  }
  return std::nullopt;
}

}  // namespace

MachineStrain readMachineStrain() {
  @autoreleasepool {
    NSProcessInfo* info = [NSProcessInfo processInfo];
    return {.thermalPressure = pressureOf([info thermalState]),
            .hotZone = std::nullopt,
            .lowPowerMode = static_cast<bool>([info isLowPowerModeEnabled])};
  }
}

}  // namespace nodo
