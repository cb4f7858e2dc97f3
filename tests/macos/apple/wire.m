#import <platform/macos/NODOHelperXPCProtocol.h>

Protocol* wireProtocol(void);

Protocol* wireProtocol(void) { return @protocol(NODOHelperXPCProtocol); }
