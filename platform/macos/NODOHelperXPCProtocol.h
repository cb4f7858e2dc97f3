#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

// The wire between the daemon and its clients: the connection's interface is made from this
// declaration, so its selectors and types are a contract with every version that is installed
// anywhere. `text` is the JSON text of a NODOHelperCommandResponse, also of a failure; nothing else
// crosses. What the requests do is said at nodo::NODOHelperXPCProtocol.
@protocol NODOHelperXPCProtocol

- (void)statusWithReply:(void (^)(NSString* text))reply;

- (void)enableManualWithMinutes:(int64_t)minutes withReply:(void (^)(NSString* text))reply;

- (void)enableManualV2WithMinutes:(int64_t)minutes
                       extendOnly:(BOOL)extendOnly
                    requesterName:(NSString* _Nullable)requesterName
                 requesterContext:(NSString* _Nullable)requesterContext
                   requesterEvent:(NSString* _Nullable)requesterEvent
                        withReply:(void (^)(NSString* text))reply;

- (void)stopWithReply:(void (^)(NSString* text))reply;

- (void)reconcileWithReply:(void (^)(NSString* text))reply;

- (void)repairWithReply:(void (^)(NSString* text))reply;

@end

NS_ASSUME_NONNULL_END
