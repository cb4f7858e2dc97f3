#pragma once

#import <dispatch/dispatch.h>

typedef NSObject* nw_path_t;
typedef NSObject* nw_path_monitor_t;
typedef void (^nw_path_monitor_update_handler_t)(nw_path_t path);

extern "C" {
nw_path_monitor_t nw_path_monitor_create();
void nw_path_monitor_set_queue(nw_path_monitor_t monitor, dispatch_queue_t queue);
void nw_path_monitor_set_update_handler(nw_path_monitor_t monitor,
                                        nw_path_monitor_update_handler_t handler);
void nw_path_monitor_start(nw_path_monitor_t monitor);
void nw_path_monitor_cancel(nw_path_monitor_t monitor);
}
