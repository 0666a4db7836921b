#include "application.h"

#include <tksinterface/TKSMainLoop.h>

void runApplication() { TKSMainLoop::run(); }

void stopApplication() { TKSMainLoop::stop(); }
