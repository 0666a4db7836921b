#pragma once

#include <tksinterface/TKSExport.h>

/// The library's main queue: everything that is said to happen "on the main thread" happens inside `run` or `drain`, on
/// the thread that calls it. Until the first call of either, the main thread is the one that the process began with.
///
/// A host without a loop of its own calls `run`. A host with one watches `descriptor` for readability and calls `drain`
/// whenever it is readable. Use one of the two. On macOS the main queue is the system's: a host that runs the main run
/// loop needs nothing of this class, and elsewhere than on the main thread `run` and `drain` only write a level-8 line.
class TKS_EXPORT TKSMainLoop {
 public:
  /// Works until `stop`. Returns at once, with a level-8 line, when the loop is being run or drained already.
  static void run();

  /// Makes `run` return once the work in hand is done; called before `run` it makes the next `run` return at once.
  /// Any thread.
  static void stop();

  /// A descriptor that is readable as long as there is work, to be watched with poll, select, epoll (level-triggered or
  /// edge-triggered) or a host's own loop. Owned by the library; never close or read it. -1 on macOS. Any thread.
  static int descriptor();

  /// Does all work that is due now and returns; never waits. When work keeps making more, the rest is left for the next
  /// call, and the descriptor is readable again. Call it from one thread only. Called from inside a
  /// callback or while another thread runs or drains, it does nothing but write a level-8 line.
  static void drain();
};
