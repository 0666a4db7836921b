#include <tksinterface/TKSMainLoop.h>

#include "platform/platform.h"

void TKSMainLoop::run() { tks::platform::mainLoop().run(); }

void TKSMainLoop::stop() { tks::platform::mainLoop().stop(); }

int TKSMainLoop::descriptor() { return tks::platform::mainLoop().descriptor(); }

void TKSMainLoop::drain() { tks::platform::mainLoop().drain(); }
