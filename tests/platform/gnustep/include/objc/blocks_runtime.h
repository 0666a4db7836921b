#pragma once
// Where GNUstep's headers look for the block run-time.
#include <Block.h>
