// A host with automatic reference counting that imports the module: classes, blocks, a text and a number among the constants.

@import TKSInterfaceKit;

int main(void) {
  @autoreleasepool {
    TKSInterface* tks = [TKSInterface sharedInstance];
    [tks setLogBlock:^(int level, NSString* line) {
      if (level >= 4) NSLog(@"%@", line);
    }];
    __block int exitCode = tksMessageHostTypeInterface;
    [tks launchMeetingWithParam:@{tks_param_key_meetingkey : @"123"}
        finishBlock:^{
          [TKSMainLoop stop];
        }
        errorBlock:^(NSError* error) {
          NSLog(@"%@ (%@)", error.localizedDescription, error.userInfo[TKSErrorReasonKey]);
          exitCode = 1;
          [TKSMainLoop stop];
        }];
    [TKSMainLoop run];
    return exitCode;
  }
}
