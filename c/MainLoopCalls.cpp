#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSUtilBase.h>

#include "c/Boundary.h"

// The main loop, and the standard handles that a launcher takes over.

using namespace tks::c;

void tks_main_loop_run() {
  guarded(__func__, [] { TKSMainLoop::run(); });
}

void tks_main_loop_stop() {
  guarded(__func__, [] { TKSMainLoop::stop(); });
}

int tks_main_loop_descriptor() {
  return guarded(
      __func__, [] { return TKSMainLoop::descriptor(); }, -1);
}

void tks_main_loop_drain() {
  guarded(__func__, [] { TKSMainLoop::drain(); });
}

int tks_original_input() {
  return guarded(
      __func__, [] { return TKSUtilBase::originalStandardInput(); }, -1);
}

int tks_original_output() {
  return guarded(
      __func__, [] { return TKSUtilBase::originalStandardOutput(); }, -1);
}
