#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"

int TKSUtilBase::originalStandardInput() { return tks::platform::childProcesses().originalStandardInput(); }

int TKSUtilBase::originalStandardOutput() { return tks::platform::childProcesses().originalStandardOutput(); }
