#pragma once

// As much of Foundation as the wire's declaration takes, for a compiler that aims at macOS without
// having its headers.

#include <stdbool.h>
#include <stdint.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

#if __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif

@class NSString;
@class Protocol;
