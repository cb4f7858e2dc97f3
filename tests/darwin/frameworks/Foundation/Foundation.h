#pragma once

// As much of Foundation as the adapters of platform/macos use, for a compiler that aims at macOS
// without having its headers: written from the public documentation, compiled and never run.

#include <objc/NSObject.h>
#include <objc/objc.h>
#include <objc/runtime.h>
#include <stdint.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

extern "C" SEL NSSelectorFromString(NSString* name);

@interface NSData : NSObject
@property(readonly) const void* bytes;
@property(readonly) NSUInteger length;
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
@end

@interface NSString : NSObject
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding;
@end

@interface NSDictionary<Key, Value> : NSObject
+ (instancetype)dictionaryWithObject:(Value)object forKey:(Key)key;
@end

@interface NSNotification : NSObject
@end

@interface NSNotificationCenter : NSObject
+ (NSNotificationCenter*)defaultCenter;
- (id<NSObject>)addObserverForName:(NSString*)name
                            object:(id)object
                             queue:(id)queue
                        usingBlock:(void (^)(NSNotification* notification))block;
- (void)removeObserver:(id)observer;
@end

typedef NSInteger NSProcessInfoThermalState;
enum : NSProcessInfoThermalState {
  NSProcessInfoThermalStateNominal,
  NSProcessInfoThermalStateFair,
  NSProcessInfoThermalStateSerious,
  NSProcessInfoThermalStateCritical
};

extern "C" NSString* const NSProcessInfoThermalStateDidChangeNotification;
extern "C" NSString* const NSProcessInfoPowerStateDidChangeNotification;

@interface NSProcessInfo : NSObject
+ (NSProcessInfo*)processInfo;
@property(readonly) NSProcessInfoThermalState thermalState;
@property(readonly, getter=isLowPowerModeEnabled) BOOL lowPowerModeEnabled;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* localizedDescription;
@end

#import <Foundation/NSXPCConnection.h>
