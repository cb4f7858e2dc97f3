#pragma once

#define kIOPMMessageClamshellStateChange 0xe0034100u
