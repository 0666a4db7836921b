#pragma once
// Where macOS declares strtod_l; here <stdlib.h> does.
#include <stdlib.h>
