// A host in Objective-C: launches one meeting and says how that went.
//
//   objc_host LAUNCHER    the launcher's bundle

#import <TKSInterfaceKit/TKSInterfaceKit.h>
#include <stdio.h>

// Standard output belongs to the launcher while it is connected: everything for people goes to standard error.
static void say(NSString* text) { fprintf(stderr, "%s\n", [text UTF8String]); }

int main(int count, char** arguments) {
  @autoreleasepool {
    if (count < 2) return 2;
    TKSInterface* tks = [TKSInterface sharedInstance];
    [tks setLogBlock:^(int level, NSString* message) {
      if (level >= 4) say(message);
    }];
    [tks launchedTKSPidBlock:^(int pid) {
      say([NSString stringWithFormat:@"The launcher runs as process %d.", pid]);
    }];
    tks.TKSAppPath = [NSString stringWithUTF8String:arguments[1]];

    __block int exitCode = 1;
    NSDictionary* meeting =
        @{tks_param_key_gpcsitedomain : @"https://meet.tarvo.example", tks_param_key_meetingkey : @"123"};
    [tks launchMeetingWithParam:meeting
        finishBlock:^{
          say(@"The meeting was launched.");
          exitCode = 0;
          [TKSMainLoop stop];
        }
        errorBlock:^(NSError* error) {
          say([NSString stringWithFormat:@"The meeting was not launched: %@ (%@)", [error localizedDescription],
                                         [[error userInfo] objectForKey:TKSErrorReasonKey]]);
          [TKSMainLoop stop];
        }];
    [TKSMainLoop run];
    return exitCode;
  }
}
