#pragma once

#import <Foundation/NSObject.h>

#include <stdint.h>

// Only the main queue, with timers and signals. Defined in FakeFrameworks.mm.

typedef uint64_t dispatch_time_t;
typedef void (^dispatch_block_t)(void);
typedef const struct FakeDispatchSourceType* dispatch_source_type_t;
typedef NSObject* dispatch_queue_t;
typedef NSObject* dispatch_source_t;

#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
#define NSEC_PER_SEC 1000000000ull
#define NSEC_PER_MSEC 1000000ull

extern "C" {
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_TIMER;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_SIGNAL;

dispatch_queue_t dispatch_get_main_queue();
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                         unsigned long mask, dispatch_queue_t queue);
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_source_set_registration_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval,
                               uint64_t leeway);
void dispatch_resume(dispatch_source_t source);
void dispatch_source_cancel(dispatch_source_t source);
void dispatch_release(dispatch_source_t source);
}
