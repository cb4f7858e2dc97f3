#pragma once

#include_next <Foundation/NSProcessInfo.h>

typedef NSInteger NSProcessInfoThermalState;
enum : NSProcessInfoThermalState {
  NSProcessInfoThermalStateNominal,
  NSProcessInfoThermalStateFair,
  NSProcessInfoThermalStateSerious,
  NSProcessInfoThermalStateCritical
};

extern "C" NSString* const NSProcessInfoThermalStateDidChangeNotification;
extern "C" NSString* const NSProcessInfoPowerStateDidChangeNotification;

@interface NSProcessInfo (Strain)

- (NSProcessInfoThermalState)thermalState;
- (BOOL)isLowPowerModeEnabled;

@end
