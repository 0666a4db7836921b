#import <TKSInterfaceKit/TKSMainLoop.h>
#include <tksinterface/c/tksinterface.h>

@implementation TKSMainLoop

+ (void)run {
  tks_main_loop_run();
}

+ (void)stop {
  tks_main_loop_stop();
}

+ (int)descriptor {
  return tks_main_loop_descriptor();
}

+ (void)drain {
  @autoreleasepool {
    tks_main_loop_drain();
  }
}

@end
