#include "application.h"

#import <AppKit/AppKit.h>

// The main queue's work, and so the library's, is done by the application's run loop. LSUIElement in the Info.plist
// says that it has neither a place in the Dock nor a menu bar.
void runApplication() {
  @autoreleasepool {
    [NSApplication.sharedApplication setActivationPolicy:NSApplicationActivationPolicyAccessory];
    [NSApplication.sharedApplication run];
  }
}

void stopApplication() {
  dispatch_async(dispatch_get_main_queue(), ^{
    [NSApplication.sharedApplication stop:nil];
    // It stops after the next event.
    NSEvent* event = [NSEvent otherEventWithType:NSEventTypeApplicationDefined
                                        location:NSZeroPoint
                                   modifierFlags:0
                                       timestamp:0
                                    windowNumber:0
                                         context:nil
                                         subtype:0
                                           data1:0
                                           data2:0];
    [NSApplication.sharedApplication postEvent:event atStart:YES];
  });
}
