#pragma once

#import <Foundation/Foundation.h>

#ifdef GNUSTEP
// GNUstep declares these classes but implements none of it, so its names are left to it. Defined in
// FakeXPC.mm.
#define NSXPCConnection FakeXPCConnection
#define NSXPCInterface FakeXPCInterface
#define NSXPCListener FakeXPCListener
#endif

@class NSXPCListener, NSXPCConnection;

typedef NSUInteger NSXPCConnectionOptions;
enum : NSXPCConnectionOptions { NSXPCConnectionPrivileged = 1 << 12 };

@interface NSXPCInterface : NSObject {
  Protocol* protocol_;
}

+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
- (Protocol*)protocol;

@end

@interface NSXPCConnection : NSObject {
 @public
  struct FakeConnectionState* state_;
}

- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
- (void)setRemoteObjectInterface:(NSXPCInterface*)interface;
- (void)setExportedInterface:(NSXPCInterface*)interface;
- (void)setExportedObject:(id)object;
- (void)setInvalidationHandler:(void (^)(void))handler;
- (void)setInterruptionHandler:(void (^)(void))handler;
- (void)resume;
- (void)invalidate;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;

@end

@protocol NSXPCListenerDelegate <NSObject>

- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;

@end

@interface NSXPCListener : NSObject {
 @public
  struct FakeListenerState* state_;
}

- (instancetype)initWithMachServiceName:(NSString*)name;
- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate;
- (void)setConnectionCodeSigningRequirement:(NSString*)requirement;
- (void)resume;
- (void)invalidate;

@end
