#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// The library's main queue. On macOS it is the system's, and a host that runs the main run loop needs nothing of this.
@interface TKSMainLoop : NSObject

/// Works until `stop`. Main thread.
+ (void)run;
/// Makes `run` return. Any thread.
+ (void)stop;
/// Readable as long as there is work, for hosts with a loop of their own; -1 on macOS. Any thread.
+ (int)descriptor;
/// Does all work that is due; never waits. Main thread.
+ (void)drain;

@end

NS_ASSUME_NONNULL_END
