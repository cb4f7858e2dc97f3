#pragma once

// GNUstep looks for this file, which comes with another runtime than ours.
#include <Block.h>
