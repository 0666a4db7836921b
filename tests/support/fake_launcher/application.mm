#import <AppKit/AppKit.h>

#include <thread>

#include "tests/support/fake_launcher/application.h"

@interface FakeLauncherDelegate : NSObject <NSApplicationDelegate>
@property(nonatomic) BOOL refusesToQuit;
@end

@implementation FakeLauncherDelegate

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender {
  return self.refusesToQuit ? NSTerminateCancel : NSTerminateNow;
}

@end

namespace tks::test {

// The system lists what has checked in as an application, and asks it to quit by an event, for which the main thread
// waits here.
void runAsApplication(bool refusesToQuit, const std::function<void()>& work) {
  NSApplication* application = NSApplication.sharedApplication;
  FakeLauncherDelegate* delegate = [[FakeLauncherDelegate alloc] init];
  delegate.refusesToQuit = refusesToQuit;
  application.delegate = delegate;
  [application setActivationPolicy:NSApplicationActivationPolicyAccessory];
  std::thread(work).detach();
  [application run];
}

}  // namespace tks::test
